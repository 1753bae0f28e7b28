#pragma once

#include "Value.h"

#include <optional>
#include <string>
#include <vector>

namespace quorl {

/// The data file in memory: user name to record. Loading never fails; what cannot be read, is no
/// dictionary, or lies deeper than 64 levels counts as absent, with a log line. The texts it holds
/// are wiped with it.
class OfflineDataJSONManipulator {
  public:
    explicit OfflineDataJSONManipulator(const std::string& path);
    ~OfflineDataJSONManipulator();
    OfflineDataJSONManipulator(const OfflineDataJSONManipulator&) = delete;
    OfflineDataJSONManipulator& operator=(const OfflineDataJSONManipulator&) = delete;

    /// Sets the whole record of a user. False, a log line and no change when it is nested too
    /// deeply or too large for the store.
    bool addData(const Value& data, const std::string& user);
    void deleteDataForKey(const std::string& user);
    /// Sets one key of a user's record; a user without one gets a record that holds only the key.
    /// False as above.
    bool updateData(const Value& value, const std::string& user, const std::string& key);
    std::optional<Value> retrieveDataForKey(const std::string& user) const;
    std::vector<std::string> allMainKeys() const;
    /// Encrypts and replaces the file as a whole; one that could not be read is kept aside. On
    /// failure, said in a log line and by false, the old content stays; a missing file is left
    /// empty. The caller holds the store's lock.
    bool saveToFile(const std::string& path) const;

    const Value& jsonDictionary() const { return jsonDictionary_; }

  private:
    /// False when there is content that cannot be read.
    bool load(const std::string& path);

    Value jsonDictionary_ = Value::object();
    const bool isReadable_;
};

}  // namespace quorl
