#pragma once

#include "Value.h"

#include <optional>
#include <string>

namespace quorl {

/// Who the agent is to the server: what every call is signed with.
struct AgentIdentity {
    std::string id;
    std::string encryptedKey;  ///< as the server sent it, for the file
    std::string key;           ///< decrypted: 64 hexadecimal digits
};

/// The identity in the server's reply to the key request. Nothing unless it is whole and can work:
/// an id of 1 to 128 printable ASCII characters, which a header can carry, and a key of 64
/// hexadecimal digits. With any other the installation key would be spent on nothing.
std::optional<AgentIdentity> readAgentIdentity(const Value& reply);

/// Stores the identity and empties the installation key in one replacement of the file. True when
/// the file, read again, holds the identity.
bool storeAgentIdentity(const AgentIdentity& identity, const std::string& configurationPath);

}  // namespace quorl
