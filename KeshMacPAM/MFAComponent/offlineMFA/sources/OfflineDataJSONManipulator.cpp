#include "OfflineDataJSONManipulator.h"

#include "AtomicFile.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "StoreFile.h"
#include "StoreJSON.h"
#include "StoreKey.h"

#include <filesystem>

namespace quorl {
namespace {

// Room for far more users than a machine has.
constexpr std::size_t largestFile = std::size_t{64} << 20;
// The cipher fills up its last block.
constexpr std::size_t largestText = largestFile - 16;

}  // namespace

OfflineDataJSONManipulator::OfflineDataJSONManipulator(const std::string& path)
    : isReadable_(load(path)) {}

bool OfflineDataJSONManipulator::load(const std::string& path) {
    logLine("JSONManipulator :: initWithFilePath :: File path: {}", path);
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        logLine("JSONManipulator :: initWithFilePath :: File not found at path: {}", path);
        return true;
    }
    const auto cipher = readFile(path, largestFile);
    if (!cipher) {
        logLine("JSONManipulator :: initWithFilePath :: File not found or unable to read: {}",
                cipher.error());
        return false;
    }
    if (cipher->empty())
        return true;
    auto plain = StoreKey::decryptUsingDEK(*cipher);
    if (!plain) {
        logLine(
            "JSONManipulator :: initWithFilePath :: Error occcured while decrypting offline Data");
        return false;
    }
    const WipeAtExit wiped(*plain);
    auto dictionary = parseStoreJSON(asText(*plain));
    if (!dictionary) {
        logLine("JSONManipulator :: initWithFilePath :: Error loading JSON data: {}",
                dictionary.error());
        return false;
    }
    jsonDictionary_ = std::move(*dictionary);
    return true;
}

OfflineDataJSONManipulator::~OfflineDataJSONManipulator() {
    wipe(jsonDictionary_);
}

bool OfflineDataJSONManipulator::addData(const Value& data, const std::string& user) {
    if (!fitsStore(data)) {
        logLine(
            "JSONManipulator :: the record of {} is nested too deeply, too large or no UTF-8, "
            "not stored",
            user);
        return false;
    }
    jsonDictionary_[user] = data;
    return true;
}

void OfflineDataJSONManipulator::deleteDataForKey(const std::string& user) {
    jsonDictionary_.erase(user);
}

bool OfflineDataJSONManipulator::updateData(const Value& value, const std::string& user,
                                            const std::string& key) {
    Value record = retrieveDataForKey(user).value_or(Value::object());
    record[key] = value;
    return addData(record, user);
}

std::optional<Value> OfflineDataJSONManipulator::retrieveDataForKey(const std::string& user) const {
    const Value* record = member(jsonDictionary_, user);
    return record && record->is_object() ? std::optional(*record) : std::nullopt;
}

std::vector<std::string> OfflineDataJSONManipulator::allMainKeys() const {
    std::vector<std::string> users;
    users.reserve(jsonDictionary_.size());
    for (const auto& [user, record] : jsonDictionary_.items())
        users.push_back(user);
    return users;
}

bool OfflineDataJSONManipulator::saveToFile(const std::string& path) const {
    if (!createIfMissing(path)) {
        logLine("saveToFile::Error creating file at path: {}", path);
        return false;
    }
    if (const auto done = makePrivate(path); !done) {
        logLine("saveToFile::Error setting file permissions: {}", done.error());
        return false;
    }
    auto plain = printStoreJSON(jsonDictionary_);
    if (!plain) {
        logLine("saveToFile::Error creating modified offline JSON data: {}", plain.error());
        return false;
    }
    const WipeAtExit wiped(*plain);
    if (plain->size() > largestText) {
        logLine(
            "saveToFile::Error creating modified offline JSON data: {} bytes are more than is "
            "read back",
            plain->size());
        return false;
    }
    const auto cipher = StoreKey::encryptUsingDEK(asBytes(*plain));
    if (!cipher) {
        logLine("saveToFile::Error while encrypting the offline data");
        return false;
    }
    if (!isReadable_ && !keepAside(path))
        return false;
    if (const auto written = replacePrivately(path, *cipher); !written) {
        logLine("saveToFile::Error writing modified offline JSON data to file.");
        logLine("saveToFile:: {}", written.error());
        return false;
    }
    logLine("saveToFile::Modified offline JSON data written to file successfully.");
    return true;
}

}  // namespace quorl
