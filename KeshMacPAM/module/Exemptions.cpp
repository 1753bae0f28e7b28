#include "Exemptions.h"

#include "LineReader.h"
#include "Paths.h"
#include "TextParts.h"

#include <sys/stat.h>

#include <cstdint>
#include <limits>

namespace quorl::pam {
namespace {

/// Finds the line of the colon-separated file whose first field is the name; `rest` is what
/// follows.
bool findEntry(LineReader& lines, std::string_view name, std::string_view& rest) {
    while (lines.next(rest))
        if (cutField(rest, ':') == name)
            return true;
    return false;
}

/// The length of the UTF-8 sequence at the front, 0 when there is none: overlong forms, surrogates
/// and what lies past U+10FFFF are none.
std::size_t sequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return 1;
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4 || text.size() < length)
        return 0;
    std::uint32_t point = lead & (0x7f >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
        point = point << 6 | (byte(i) & 0x3f);
    }
    const bool overlong = (length == 3 && point < 0x800) || (length == 4 && point < 0x10000);
    const bool surrogate = point >= 0xd800 && point <= 0xdfff;
    const bool control = point < 0xa0 || point == 0x2028 || point == 0x2029;
    return overlong || surrogate || control || point > 0x10ffff ? 0 : length;
}

}  // namespace

std::optional<LocalAccount> localAccount(std::string_view user, AccountFiles files) {
    LineReader passwd(files.passwd);
    std::string_view rest;
    if (!findEntry(passwd, user, rest))
        return std::nullopt;
    cutField(rest, ':');
    const long long uid = wholeNumber(cutField(rest, ':'));
    if (uid < 0 || uid > std::numeric_limits<uid_t>::max())
        return std::nullopt;

    LocalAccount account{static_cast<uid_t>(uid), false};
    LineReader shadow(files.shadow);
    if (findEntry(shadow, user, rest)) {
        constexpr std::size_t shortestHash = 13;
        const std::string_view hash = cutField(rest, ':');
        account.hasHash = hash.size() >= shortestHash && hash.front() != '!' && hash.front() != '*';
    }
    return account;
}

std::optional<std::chrono::seconds> breakGlass(const char* path, std::chrono::seconds now) {
    Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != rulingUid() || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return std::nullopt;
    LineReader lines(std::move(file));
    std::string_view line;
    if (!lines.next(line))
        return std::nullopt;
    const std::chrono::seconds end(wholeNumber(line));
    return now < end ? std::optional(end) : std::nullopt;
}

bool plausibleName(std::string_view user) {
    constexpr std::size_t longest = 256;
    if (user.empty() || user.size() > longest)
        return false;
    while (!user.empty()) {
        const std::size_t length = sequenceLength(user);
        if (length == 0 || user.front() == '/' || user.front() == 0x7f ||
            (length == 1 && user.front() < 0x20))
            return false;
        user.remove_prefix(length);
    }
    return true;
}

}  // namespace quorl::pam
