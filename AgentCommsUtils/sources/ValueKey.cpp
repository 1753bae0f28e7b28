#include "ValueKey.h"

#include "AtomicFile.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "SystemPaths.h"

#include <filesystem>

namespace quorl {
namespace {

// More than the digits and the line's end that an editor leaves behind them.
constexpr std::size_t largestFile = 1024;

constexpr std::optional<AesKey> developmentKey = keyFromHex(QUORL_DEVELOPMENT_VALUE_KEY);
static_assert(developmentKey);

std::string_view withoutLineEnd(std::string_view text) {
    return text.substr(0, text.find_last_not_of("\r\n") + 1);
}

}  // namespace

std::optional<AesKey> valueKey() {
    const std::string path = systemPaths().supportDirectory() + "/value.key";
    std::error_code error;
    // Only a name that is not there gives the built-in key; what cannot be looked at does not.
    if (std::filesystem::symlink_status(path, error).type() ==
        std::filesystem::file_type::not_found)
        return aesKey;
    auto content = readFile(path, largestFile);
    if (!content) {
        logLine("valueKey : {} could not be read: {}", path, content.error());
        return std::nullopt;
    }
    const WipeAtExit wiped(*content);
    const auto key = keyFromHex(withoutLineEnd(asText(*content)));
    if (!key)
        logLine("valueKey : {} does not hold 64 hexadecimal digits", path);
    return key;
}

bool isDevelopmentValueKey() {
    return valueKey() == developmentKey;
}

}  // namespace quorl
