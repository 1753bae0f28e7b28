#pragma once

#include "Bytes.h"
#include "Clock.h"
#include "Value.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// Path of the encrypted data file, settled on first use.
const std::string& getUserOfflineDataFilePath();

/// The store's operations. Each reads and decrypts the whole file; each change encrypts and
/// rewrites it under a lock file, so that several processes never lose each other's change. Without
/// the lock a change is not made. Blocks the calling thread.
class OfflineDataHandler {
  public:
    OfflineDataHandler() = delete;

    /// The user's record; nothing, and a log line, when there is none.
    static std::optional<Value> getOfflineData(const std::string& user);
    /// True when the file holds the change.
    static bool setOfflineData(const std::string& user, const std::string& key, const Value& value);
    static bool deleteUserOfflineData(const std::string& user);
    static std::vector<std::string> getEnrolledUserList();

    /// Which sync each stored record comes from: user name to its "LAST_SYNC_TIME", in microseconds
    /// since 1970-01-01 UTC, 0 where the record has none.
    using SyncTimes = std::map<std::string, std::int64_t>;
    static SyncTimes storedUsers();
    /// Removes every one of the users whom the server no longer lists, unless a later sync has
    /// stored the user since. Rewrites the file once per stored user.
    static void removeDeletedUsers(const SyncTimes& storedUsers,
                                   const std::vector<std::string>& enrolledUsers);

    /// Puts a synced record in the place of the user's, in one write, and makes the store's key
    /// where there is none. False leaves the old record.
    enum class Replaced { done, noKey, notWritten };
    static Replaced replaceRecord(const std::string& user, Value record, const Clock& clock);

    /// Reads a user's record, hands it to the change, and stores the record that the change gives,
    /// all under one lock: what the change decides by is what it replaces. Nothing from the change
    /// leaves the file alone. Without a record the change is not called, and the log says so. The
    /// change must not call the store.
    using RecordChange = std::function<std::optional<Value>(const Value& record)>;
    enum class Updated { written, noRecord, leftAlone, notWritten };
    static Updated updateUserRecord(const std::string& user, const RecordChange& change);

    static std::optional<Bytes> encryptUsingDEK(ByteView plain);
    static std::optional<Bytes> decryptUsingDEK(ByteView cipher);
    static std::optional<std::string> getDataEncryptionKey();
    static bool setDataEncryptionKey();
    /// As the store's key has it, under the store's lock.
    static bool ensureDataEncryptionKey();
};

}  // namespace quorl
