#include "AgentIdentity.h"

#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "ValueKey.h"

#include <algorithm>

namespace quorl {
namespace {

bool isAgentId(std::string_view id) {
    constexpr std::size_t longest = 128;
    return !id.empty() && id.size() <= longest &&
           std::all_of(id.begin(), id.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
}

}  // namespace

std::optional<AgentIdentity> readAgentIdentity(const Value& reply) {
    const Value* const properties = member(reply, "agent_props");
    if (stringValue(reply, "result") != "success" || !properties)
        return std::nullopt;
    const auto id = stringValue(*properties, "agent_id");
    const auto encryptedKey = stringValue(*properties, "agent_access_key");
    std::optional<AesKey> decryptionKey = valueKey();
    if (!id || !isAgentId(*id) || !encryptedKey || !decryptionKey)
        return std::nullopt;
    const WipeAtExit wiped(*decryptionKey);
    auto key = decrypt(*encryptedKey, *decryptionKey, iv);
    if (!key || !keyFromHex(*key))
        return std::nullopt;
    return AgentIdentity{*id, *encryptedKey, std::move(*key)};
}

bool storeAgentIdentity(const AgentIdentity& identity, const std::string& configurationPath) {
    if (!changeConfiguration({{"AGENT_ID", identity.id},
                              {"ACCESS_KEY", identity.encryptedKey},
                              {"INSTALLATION_KEY", ""}},
                             configurationPath))
        return false;
    const StoredConfig stored = readConfig(configurationPath);
    return configText(stored.settings, "AGENT_ID") == identity.id &&
           configText(stored.settings, "ACCESS_KEY") == identity.key;
}

}  // namespace quorl
