#pragma once

#include "Bytes.h"
#include "OfflineDataJSONManipulator.h"
#include "Value.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// Paths of the encrypted data file and of the key file, settled on first use.
const std::string& getUserOfflineDataFilePath();
const std::string& getDEKFilePath();

/// The store's operations. Each reads and decrypts the whole file; each change encrypts and
/// rewrites it under a lock file, so that several processes never lose each other's change. The
/// data encryption key is never kept: every operation derives it anew. Blocks the calling thread.
class OfflineDataHandler {
  public:
    OfflineDataHandler() = delete;

    /// The user's record; nothing, and a log line, when there is none.
    static std::optional<Value> getOfflineData(const std::string& user);
    static void setOfflineData(const std::string& user, const std::string& key, const Value& value);
    static void deleteUserOfflineData(const std::string& user);
    /// Removes every stored user whom the server no longer lists. Rewrites the file once per stored
    /// user.
    static void removeDeletedUsers(const std::vector<std::string>& storedUsers,
                                   const std::vector<std::string>& enrolledUsers);
    static std::vector<std::string> getEnrolledUserList();

    /// Reads a user's record, hands it to the change, and stores the record that the change gives,
    /// all under one lock: what the change decides by is what it replaces. Nothing from the change
    /// leaves the file alone. Without a record the change is not called, and the log says so. True
    /// when a record was written. The change must not call the store.
    using RecordChange = std::function<std::optional<Value>(const Value& record)>;
    static bool updateUserRecord(const std::string& user, const RecordChange& change);

    static std::optional<Bytes> encryptUsingDEK(ByteView plain);
    static std::optional<Bytes> decryptUsingDEK(ByteView cipher);
    static std::optional<std::string> getDataEncryptionKey();
    /// Makes a new key, even where there is one: what the old one encrypted is lost then.
    static bool setDataEncryptionKey();
    /// Makes a key when the key file is missing, or empty as a crash may leave it. Two processes
    /// that find it missing at once make one key between them. False when there is none afterwards.
    static bool ensureDataEncryptionKey();
};

}  // namespace quorl
