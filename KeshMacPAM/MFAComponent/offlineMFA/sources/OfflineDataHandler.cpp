#include "OfflineDataHandler.h"

#include "Log.h"
#include "OfflineDataJSONManipulator.h"
#include "StoreFile.h"
#include "StoreKey.h"
#include "SystemPaths.h"

#include <algorithm>
#include <limits>

namespace quorl {
namespace {

constexpr const char* syncTimeKey = "LAST_SYNC_TIME";

std::int64_t syncTime(const Value& record) {
    return integerValue(record, syncTimeKey);
}

std::int64_t nextTime(std::int64_t time) {
    return time == std::numeric_limits<std::int64_t>::max() ? 0 : time + 1;
}

/// Reads the file, changes it and writes it, all under the lock; the change tells by false that
/// there is nothing to write.
template <class Change>
bool changeStore(Change change) {
    const StoreLock lock;
    if (!lock.held())
        return false;
    OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    return change(data) && data.saveToFile(getUserOfflineDataFilePath());
}

}  // namespace

const std::string& getUserOfflineDataFilePath() {
    static const std::string path = systemPaths().supportDirectory() + "/offline-data.json";
    return path;
}

std::optional<Value> OfflineDataHandler::getOfflineData(const std::string& user) {
    const OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    auto record = data.retrieveDataForKey(user);
    if (!record)
        logLine("getOfflineData::Error reading from file");
    return record;
}

bool OfflineDataHandler::setOfflineData(const std::string& user, const std::string& key,
                                        const Value& value) {
    return changeStore(
        [&](OfflineDataJSONManipulator& data) { return data.updateData(value, user, key); });
}

bool OfflineDataHandler::deleteUserOfflineData(const std::string& user) {
    return changeStore([&](OfflineDataJSONManipulator& data) {
        data.deleteDataForKey(user);
        return true;
    });
}

std::vector<std::string> OfflineDataHandler::getEnrolledUserList() {
    return OfflineDataJSONManipulator(getUserOfflineDataFilePath()).allMainKeys();
}

OfflineDataHandler::SyncTimes OfflineDataHandler::storedUsers() {
    const OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    SyncTimes users;
    for (const auto& [user, record] : data.jsonDictionary().items())
        users[user] = syncTime(record);
    return users;
}

void OfflineDataHandler::removeDeletedUsers(const SyncTimes& storedUsers,
                                            const std::vector<std::string>& enrolledUsers) {
    for (const auto& [user, known] : storedUsers) {
        const bool listed =
            std::find(enrolledUsers.begin(), enrolledUsers.end(), user) != enrolledUsers.end();
        const bool saved = changeStore([&, &name = user, &time = known](auto& data) {
            const auto record = data.retrieveDataForKey(name);
            if (!listed && (!record || syncTime(*record) == time)) {
                logLine("removeDeletedUsers :: removing user {} data", name);
                data.deleteDataForKey(name);
            }
            return true;
        });
        if (!saved)
            return;
    }
}

OfflineDataHandler::Replaced OfflineDataHandler::replaceRecord(const std::string& user,
                                                               Value record, const Clock& clock) {
    const StoreLock lock;
    if (!lock.held())
        return Replaced::notWritten;
    if (!StoreKey::ensureDataEncryptionKey())
        return Replaced::noKey;
    OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    const auto old = data.retrieveDataForKey(user);
    const std::int64_t now =
        std::chrono::floor<std::chrono::microseconds>(clock.now()).time_since_epoch().count();
    // Never the same twice, whatever the clock says: that is how a newer record is told.
    record[syncTimeKey] = old && syncTime(*old) >= now ? nextTime(syncTime(*old)) : now;
    return data.addData(record, user) && data.saveToFile(getUserOfflineDataFilePath())
               ? Replaced::done
               : Replaced::notWritten;
}

OfflineDataHandler::Updated OfflineDataHandler::updateUserRecord(const std::string& user,
                                                                 const RecordChange& change) {
    Updated failure = Updated::notWritten;
    const bool written = changeStore([&](OfflineDataJSONManipulator& data) {
        const auto record = data.retrieveDataForKey(user);
        if (!record) {
            logLine("getOfflineData::Error reading from file");
            failure = Updated::noRecord;
            return false;
        }
        const auto changed = change(*record);
        if (!changed) {
            failure = Updated::leftAlone;
            return false;
        }
        return data.addData(*changed, user);
    });
    return written ? Updated::written : failure;
}

std::optional<Bytes> OfflineDataHandler::encryptUsingDEK(ByteView plain) {
    return StoreKey::encryptUsingDEK(plain);
}

std::optional<Bytes> OfflineDataHandler::decryptUsingDEK(ByteView cipher) {
    return StoreKey::decryptUsingDEK(cipher);
}

std::optional<std::string> OfflineDataHandler::getDataEncryptionKey() {
    return StoreKey::getDataEncryptionKey();
}

bool OfflineDataHandler::setDataEncryptionKey() {
    return StoreKey::setDataEncryptionKey();
}

bool OfflineDataHandler::ensureDataEncryptionKey() {
    const StoreLock lock;
    return lock.held() && StoreKey::ensureDataEncryptionKey();
}

}  // namespace quorl
