#pragma once

#include "Bytes.h"
#include "Value.h"

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// Paths of the encrypted data file and of the key file, settled on first use.
const std::string& getUserOfflineDataFilePath();
const std::string& getDEKFilePath();

/// The data file in memory: user name to record. Loading never fails; what cannot be read is empty.
class OfflineDataJSONManipulator {
  public:
    explicit OfflineDataJSONManipulator(const std::string& path);

    void addData(const Value& data, const std::string& user);
    void deleteDataForKey(const std::string& user);
    void updateData(const Value& value, const std::string& user, const std::string& key);
    std::optional<Value> retrieveDataForKey(const std::string& user) const;
    std::vector<std::string> allMainKeys() const;
    /// Encrypts and replaces the file as a whole; on failure the old file stays, a log line says
    /// why.
    void saveToFile(const std::string& path) const;

    const Value& jsonDictionary() const { return jsonDictionary_; }

  private:
    Value jsonDictionary_ = Value::object();
};

/// The store's operations. Each reads, decrypts, perhaps changes, encrypts and rewrites the whole
/// file under a lock file, so that several processes never lose each other's change.
class OfflineDataHandler {
  public:
    OfflineDataHandler() = delete;

    static std::optional<Value> getOfflineData(const std::string& user);
    static void setOfflineData(const std::string& user, const std::string& key, const Value& value);
    static void deleteUserOfflineData(const std::string& user);
    static void removeDeletedUsers(const std::vector<std::string>& storedUsers,
                                   const std::vector<std::string>& enrolledUsers);
    static std::vector<std::string> getEnrolledUserList();
    static std::optional<Bytes> encryptUsingDEK(ByteView plain);
    static std::optional<Bytes> decryptUsingDEK(ByteView cipher);
    static std::optional<std::string> getDataEncryptionKey();
    static bool setDataEncryptionKey();
};

}  // namespace quorl
