// One change of one key of one user, beside the least that any such change must do: two key
// derivations by OpenSSL, decrypt, parse, print, encrypt, write, sync the file, rename, sync the
// folder. And checking a wrong code with a window of three steps, beside an independent library
// that validates the same code of the same, already decoded secret.
#include "ConfigParser.h"
#include "Scene.h"
#include "TestClock.h"
#include "authenticators/TOTPAuthenticator.h"

#include <fmt/format.h>
#include <liboath/oath.h>
#include <openssl/evp.h>

namespace quorl::bench {
namespace {

// The cipher of every stored value, straight from OpenSSL: encrypts with 1, decrypts with 0.
std::string bareCipher(ByteView key, std::string_view input, int encrypt) {
    const Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> context(EVP_CIPHER_CTX_new());
    EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data(), encrypt);
    std::string output(input.size() + 16, '\0');
    auto* out = reinterpret_cast<unsigned char*>(output.data());
    int written = 0;
    int rest = 0;
    EVP_CipherUpdate(context.get(), out, &written, asBytes(input).data(),
                     static_cast<int>(input.size()));
    EVP_CipherFinal_ex(context.get(), out + written, &rest);
    output.resize(static_cast<std::size_t>(written + rest));
    return output;
}

// Under the key derived anew, as each side of a change must.
std::string storeCipher(const std::string& input, int encrypt) {
    const std::string password = convertDataBytesToHex(accessKey);
    std::array<unsigned char, 32> key{};
    PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), nullptr, 0, 10'000,
                      EVP_sha256(), static_cast<int>(key.size()), key.data());
    return bareCipher(key, input, encrypt);
}

void leastChange(const std::string& folder, const std::string& user) {
    const std::string path = folder + "/floor";
    std::string cipher(std::filesystem::file_size(path), '\0');
    std::ifstream(path).read(cipher.data(), static_cast<std::streamsize>(cipher.size()));
    Value users = Value::parse(storeCipher(cipher, 0));
    users[user]["CHANGED"] = "value";
    cipher = storeCipher(users.dump(2), 1);
    const std::string temporary = path + ".new";
    const FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    expect(write(file.get(), cipher.data(), cipher.size()) > 0, "the bare store is not written");
    fsync(file.get());
    rename(temporary.c_str(), path.c_str());
    const FileDescriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY));
    fsync(directory.get());
}

constexpr const char* wrongCode = "000000";
constexpr std::time_t frozenTime = 1'794'702'491;

void expectRefused(bool accepted) {
    expect(!accepted, "a wrong code was accepted");
}

void validateBare(ByteView key, int flags) {
    expectRefused(oath_totp_validate4(reinterpret_cast<const char*>(key.data()), key.size(),
                                      frozenTime, 30, 0, 1, nullptr, nullptr, flags,
                                      wrongCode) >= 0);
}

// The least that an encrypted secret costs: base64 and AES, straight from OpenSSL.
void decryptBare(const std::string& base64) {
    std::array<unsigned char, 128> cipher{};
    EVP_DecodeBlock(cipher.data(), asBytes(base64).data(), static_cast<int>(base64.size()));
    bareCipher(accessKey, asText(cipher).substr(0, base64.size() / 4 * 3), 0);
}

}  // namespace

void benchStore() {
    const TestSandbox sandbox;
    const std::string folder = sandbox.support();
    // The log goes to a file, as the agent's does.
    initLog(sandbox.root() / "log");
    getProductConfig(getConfigFilePath())["ACCESS_KEY"] = convertDataBytesToHex(accessKey);
    OfflineDataHandler::setDataEncryptionKey();
    const std::string user = "user0@EXAMPLE";
    const auto change = [&] {
        expect(OfflineDataHandler::setOfflineData(user, "CHANGED", "value"), "no change is taken");
    };
    const auto least = [&] { leastChange(folder, user); };
    for (const auto& [users, turns] :
         {std::pair(1, 150), std::pair(100, 100), std::pair(1000, 40)}) {
        Value all;
        for (int i = 0; i < users; ++i)
            all[fmt::format("user{}@EXAMPLE", i)] = sampleRecord(std::string(88, 's'), {1, 7});
        const std::string text = all.dump(2);
        TestSandbox::write(folder + "/offline-data.json",
                           toString(OfflineDataHandler::encryptUsingDEK(asBytes(text)).value()));
        TestSandbox::write(folder + "/floor", storeCipher(text, 1));
        print(fmt::format("agent.store.{}.change.p10", users), compare({turns}, change, least), ms,
              0.1);
    }
}

void benchTotp() {
    constexpr Turns turns{.turns = 301, .runs = 200};
    oath_init();
    const Bytes key = base32Decode(userSecret);
    const struct {
        const char *figure, *algorithm;
        int flags;
    } algorithms[] = {{"agent.totp.sha1.wrong", "SHA1", 0},
                      {"agent.totp.sha256.wrong", "SHA256", OATH_TOTP_HMAC_SHA256},
                      {"agent.totp.sha512.wrong", "SHA512", OATH_TOTP_HMAC_SHA512}};
    for (const auto& [figure, algorithm, flags] : algorithms) {
        const TotpParameters parameters{algorithm, 6, 1, 30};
        const auto verify = [&] {
            expectRefused(verifyCode(userSecret, wrongCode, frozenTime * 1000, parameters));
        };
        print(figure, compare(turns, verify, [&, flags = flags] { validateBare(key, flags); }), ns);
    }

    const test::TestClock clock{std::chrono::seconds(frozenTime)};
    const std::string encrypted = encryptText(userSecret, accessKey, iv).value();
    const Value record = sampleAuthenticator(encrypted);
    const TOTPAuthenticator app(&record, convertDataBytesToHex(accessKey), clock);
    const Value typed = {{"AUTH_CODE", wrongCode}};
    const auto verify = [&] { expectRefused(app.verifyTOTP(typed)); };
    const auto bare = [&] {
        decryptBare(encrypted);
        validateBare(key, 0);
    };
    print("agent.totp.verify.wrong", compare(turns, verify, bare), ns);
}

}  // namespace quorl::bench
