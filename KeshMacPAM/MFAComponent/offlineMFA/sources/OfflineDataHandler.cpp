#include "OfflineDataHandler.h"

#include "AtomicFile.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "StoreFile.h"
#include "StoreJSON.h"
#include "SystemPaths.h"

#include <algorithm>
#include <filesystem>

namespace quorl {
namespace {

constexpr std::size_t largestKeyFile = std::size_t{64} << 10;

// The key is the first 32 characters of the base64 text, not the bytes the text stands for: so
// are the files that exist already.
ByteView cipherKey(std::string_view base64) {
    return asBytes(base64.substr(0, 32));
}

using Cipher = std::optional<Bytes> (*)(ByteView, ByteView, ByteView);

// Encrypts or decrypts under the key that the agent access key gives.
std::optional<Bytes> runWithAccessKey(Cipher run, ByteView input) {
    std::string accessKey = configText(getProductConfig(getConfigFilePath()), "ACCESS_KEY");
    const WipeAtExit accessKeyWiped(accessKey);
    auto derived = generateAESKeyFromInput(accessKey);
    if (!derived)
        return std::nullopt;
    const WipeAtExit derivedWiped(*derived);
    return run(input, cipherKey(*derived), iv);
}

std::optional<Bytes> runWithDEK(Cipher run, ByteView input, std::string_view operation) {
    auto dek = OfflineDataHandler::getDataEncryptionKey();
    if (!dek) {
        logLine("{} :: Error while getting dekey", operation);
        return std::nullopt;
    }
    const WipeAtExit wiped(*dek);
    return run(input, cipherKey(*dek), iv);
}

}  // namespace

const std::string& getUserOfflineDataFilePath() {
    static const std::string path = systemPaths().supportDirectory() + "/offline-data.json";
    return path;
}

const std::string& getDEKFilePath() {
    static const std::string path = systemPaths().supportDirectory() + "/dekey.key";
    return path;
}

std::optional<Value> OfflineDataHandler::getOfflineData(const std::string& user) {
    const OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    auto record = data.retrieveDataForKey(user);
    if (!record)
        logLine("getOfflineData::Error reading from file");
    return record;
}

void OfflineDataHandler::setOfflineData(const std::string& user, const std::string& key,
                                        const Value& value) {
    const StoreLock lock;
    OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    if (data.updateData(value, user, key))
        data.saveToFile(getUserOfflineDataFilePath());
}

void OfflineDataHandler::deleteUserOfflineData(const std::string& user) {
    const StoreLock lock;
    OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    data.deleteDataForKey(user);
    data.saveToFile(getUserOfflineDataFilePath());
}

void OfflineDataHandler::removeDeletedUsers(const std::vector<std::string>& storedUsers,
                                            const std::vector<std::string>& enrolledUsers) {
    for (const std::string& user : storedUsers) {
        const StoreLock lock;
        OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
        if (std::find(enrolledUsers.begin(), enrolledUsers.end(), user) == enrolledUsers.end()) {
            logLine("removeDeletedUsers :: removing user {} data", user);
            data.deleteDataForKey(user);
        }
        data.saveToFile(getUserOfflineDataFilePath());
    }
}

std::vector<std::string> OfflineDataHandler::getEnrolledUserList() {
    return OfflineDataJSONManipulator(getUserOfflineDataFilePath()).allMainKeys();
}

bool OfflineDataHandler::updateUserRecord(const std::string& user, const RecordChange& change) {
    const StoreLock lock;
    OfflineDataJSONManipulator data(getUserOfflineDataFilePath());
    const auto record = data.retrieveDataForKey(user);
    if (!record) {
        logLine("getOfflineData::Error reading from file");
        return false;
    }
    const auto changed = change(*record);
    if (!changed)
        return false;
    return data.addData(*changed, user) && data.saveToFile(getUserOfflineDataFilePath());
}

std::optional<Bytes> OfflineDataHandler::encryptUsingDEK(ByteView plain) {
    return runWithDEK(encryptData, plain, "encryptUsingDEK");
}

std::optional<Bytes> OfflineDataHandler::decryptUsingDEK(ByteView cipher) {
    return runWithDEK(decryptData, cipher, "decryptUsingDEK");
}

std::optional<std::string> OfflineDataHandler::getDataEncryptionKey() {
    const auto cipher = readFile(getDEKFilePath(), largestKeyFile);
    if (!cipher) {
        logLine("getDataEncryptionKey :: Error reading JSON file - dekey: {}", cipher.error());
        return std::nullopt;
    }
    Bytes plain = runWithAccessKey(decryptData, *cipher).value_or(Bytes());
    const WipeAtExit plainWiped(plain);
    auto json = parseStoreJSON(asText(plain));
    if (!json || json->empty()) {
        logLine("getDataEncryptionKey :: Error parsing JSON data - dekeyJson: {}",
                json ? "it has no members" : json.error());
        return std::nullopt;
    }
    auto dek = stringValue(*json, "DATA_ENCRYPTION_KEY");
    wipeTexts(*json);
    return dek;
}

bool OfflineDataHandler::setDataEncryptionKey() {
    logLine("setDataEncryptionKey :: Going to set DataEncryptionKey...");
    auto dek = generateBase64EncodedAESKey();
    if (!dek) {
        logLine("setDataEncryptionKey :: Error while generating dekey");
        return false;
    }
    const WipeAtExit dekWiped(*dek);
    // Base64 holds nothing that JSON would escape.
    std::string json = fmt::format(R"({{"DATA_ENCRYPTION_KEY":"{}"}})", *dek);
    const WipeAtExit jsonWiped(json);
    const auto cipher = runWithAccessKey(encryptData, asBytes(json));
    if (!cipher) {
        logLine("setDataEncryptionKey :: Error writing encrypting dekey json");
        return false;
    }
    const std::string& path = getDEKFilePath();
    if (!createIfMissing(path)) {
        logLine("setDataEncryptionKey::Error creating file at path: {}", path);
        return false;
    }
    if (const auto done = makePrivate(path); !done) {
        logLine("setDataEncryptionKey::Error setting file permissions: {}", done.error());
        return false;
    }
    const auto written = replacePrivately(path, *cipher);
    if (!written)
        logLine("setDataEncryptionKey:: {}", written.error());
    return written.has_value();
}

bool OfflineDataHandler::ensureDataEncryptionKey() {
    const StoreLock lock;
    std::error_code error;
    const auto size = std::filesystem::file_size(getDEKFilePath(), error);
    return (!error && size > 0) || setDataEncryptionKey();
}

}  // namespace quorl
