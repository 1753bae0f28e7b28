#include "StoreKey.h"

#include "AtomicFile.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Log.h"
#include "StoreFile.h"
#include "StoreJSON.h"
#include "SystemPaths.h"

#include <filesystem>

namespace quorl {
namespace {

constexpr std::size_t keyLength = 32;
constexpr std::size_t largestKeyFile = std::size_t{64} << 10;

// The key is the first 32 characters of the base64 text, not the bytes the text stands for: so
// are the files that exist already.
ByteView cipherKey(std::string_view base64) {
    return asBytes(base64.substr(0, keyLength));
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
    auto dek = StoreKey::getDataEncryptionKey();
    if (!dek) {
        logLine("{} :: Error while getting dekey", operation);
        return std::nullopt;
    }
    const WipeAtExit wiped(*dek);
    return run(input, cipherKey(*dek), iv);
}

}  // namespace

const std::string& getDEKFilePath() {
    static const std::string path = systemPaths().supportDirectory() + "/dekey.key";
    return path;
}

std::optional<Bytes> StoreKey::encryptUsingDEK(ByteView plain) {
    return runWithDEK(encryptData, plain, "encryptUsingDEK");
}

std::optional<Bytes> StoreKey::decryptUsingDEK(ByteView cipher) {
    return runWithDEK(decryptData, cipher, "decryptUsingDEK");
}

std::optional<std::string> StoreKey::getDataEncryptionKey() {
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
    wipe(*json);
    if (dek && dek->size() < keyLength) {
        logLine("getDataEncryptionKey :: the key is too short");
        return std::nullopt;
    }
    return dek;
}

bool StoreKey::setDataEncryptionKey() {
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

bool StoreKey::ensureDataEncryptionKey() {
    std::error_code error;
    const auto size = std::filesystem::file_size(getDEKFilePath(), error);
    if (error || size == 0)
        return setDataEncryptionKey();
    auto dek = getDataEncryptionKey();
    if (dek) {
        wipe(*dek);
        return true;
    }
    logLine(
        "ensureDataEncryptionKey :: {} cannot be read, and neither can the data under it: a "
        "new key is made",
        getDEKFilePath());
    return keepAside(getDEKFilePath()) && setDataEncryptionKey();
}

}  // namespace quorl
