#pragma once

#include "Bytes.h"

#include <optional>
#include <string>

namespace quorl {

/// Path of the key file, settled on first use.
const std::string& getDEKFilePath();

/// The data encryption key, under which the offline data lies on the disk. The key file holds it
/// encrypted by the agent's access key. It is never kept in memory: every use derives it anew.
class StoreKey {
  public:
    StoreKey() = delete;

    static std::optional<std::string> getDataEncryptionKey();
    /// Makes a new key, even where there is one: what the old one encrypted is lost then.
    static bool setDataEncryptionKey();
    /// Makes a key when the key file is missing or empty, or holds what the access key no longer
    /// opens: what lies under such a key cannot be read either. The unreadable file is kept aside.
    /// False when there is none afterwards. The caller holds the store's lock, so that two
    /// processes that find it missing at once make one key between them.
    static bool ensureDataEncryptionKey();

    static std::optional<Bytes> encryptUsingDEK(ByteView plain);
    static std::optional<Bytes> decryptUsingDEK(ByteView cipher);
};

}  // namespace quorl
