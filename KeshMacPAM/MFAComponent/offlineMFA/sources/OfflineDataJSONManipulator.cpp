#include "OfflineDataJSONManipulator.h"

#include "AtomicFile.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "OfflineDataHandler.h"
#include "StoreFile.h"
#include "StoreJSON.h"

#include <filesystem>

namespace quorl {
namespace {

// Room for far more users than a machine has.
constexpr std::size_t largestFile = std::size_t{64} << 20;

}  // namespace

OfflineDataJSONManipulator::OfflineDataJSONManipulator(const std::string& path) {
    logLine("JSONManipulator :: initWithFilePath :: File path: {}", path);
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        logLine("JSONManipulator :: initWithFilePath :: File not found at path: {}", path);
        return;
    }
    const auto cipher = readFile(path, largestFile);
    if (!cipher) {
        logLine("JSONManipulator :: initWithFilePath :: File not found or unable to read: {}",
                cipher.error());
        return;
    }
    if (cipher->empty())
        return;
    auto plain = OfflineDataHandler::decryptUsingDEK(*cipher);
    if (!plain) {
        logLine(
            "JSONManipulator :: initWithFilePath :: Error occcured while decrypting offline Data");
        return;
    }
    const WipeAtExit wiped(*plain);
    auto dictionary = parseStoreJSON(asText(*plain));
    if (!dictionary) {
        logLine("JSONManipulator :: initWithFilePath :: Error loading JSON data: {}",
                dictionary.error());
        return;
    }
    jsonDictionary_ = std::move(*dictionary);
}

OfflineDataJSONManipulator::~OfflineDataJSONManipulator() {
    wipeTexts(jsonDictionary_);
}

bool OfflineDataJSONManipulator::addData(const Value& data, const std::string& user) {
    if (!fitsStore(data)) {
        logLine("JSONManipulator :: addData :: nested too deeply, not stored");
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
    if (!fitsStore(value)) {
        logLine("JSONManipulator :: updateData :: {} is nested too deeply, not stored", key);
        return false;
    }
    Value& record = jsonDictionary_[user];
    if (!record.is_object())
        record = Value::object();
    record[key] = value;
    return true;
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
    const auto cipher = OfflineDataHandler::encryptUsingDEK(asBytes(*plain));
    if (!cipher) {
        logLine("saveToFile::Error while encrypting the offline data");
        return false;
    }
    if (const auto written = replacePrivately(path, *cipher); !written) {
        logLine("saveToFile::Error writing modified offline JSON data to file.");
        logLine("saveToFile:: {}", written.error());
        return false;
    }
    logLine("saveToFile::Modified offline JSON data written to file successfully.");
    return true;
}

}  // namespace quorl
