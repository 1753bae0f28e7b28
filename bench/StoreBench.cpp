// One change of one key of one user, beside the least that any such change must do: two key
// derivations by OpenSSL, decrypt, parse, print, encrypt, write, sync the file, rename, sync the
// folder.
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Groups.h"
#include "Handle.h"
#include "OfflineDataHandler.h"
#include "TestSandbox.h"

#include <fmt/format.h>
#include <openssl/evp.h>

namespace quorl::bench {
namespace {

using test::TestSandbox;
using CipherContext = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

const std::string accessKey(64, 'a');

Value record() {
    const auto authenticator = [](const std::string& name) {
        return Value{{"AUTH_DISPLAY_NAME", name},
                     {"SECRET_KEY", std::string(88, 's')},
                     {"ALGORITHM_TYPE", "SHA1"},
                     {"EXPIRY_TIME", 30},
                     {"DIGITS", 6},
                     {"AUTH_VARIANCE", 1}};
    };
    return {{"POLICY_DATA",
             {{"MFA_NO_OF_FACTORS", 1},
              {"ENABLED_AUTHS", {1, 7}},
              {"MANDATORY_AUTHS", Value::array()},
              {"OFFLINE_MFA_LIMIT_TYPE", 2},
              {"OFFLINE_MFA_LIMIT_VALUE", 50}}},
            {"USER_DATA",
             {{"AUTH_ENROLLMENT", {{"1", authenticator("app")}, {"7", authenticator("token")}}},
              {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 3},
              {"LAST_ONLINE_MFA_TIME", 1'794'702'491}}}};
}

std::string userName(int number) {
    return fmt::format("user{}@EXAMPLE", number);
}

void deriveKey(std::array<unsigned char, 32>& key) {
    PKCS5_PBKDF2_HMAC(accessKey.data(), static_cast<int>(accessKey.size()), nullptr, 0, 10'000,
                      EVP_sha256(), static_cast<int>(key.size()), key.data());
}

std::string runCipher(const std::string& input, const unsigned char* key, int encrypt) {
    const CipherContext context(EVP_CIPHER_CTX_new());
    EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key, iv.data(), encrypt);
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

void leastChange(const std::string& folder) {
    std::array<unsigned char, 32> key{};
    deriveKey(key);
    const std::string path = folder + "/floor";
    const FileDescriptor old(open(path.c_str(), O_RDONLY));
    std::string cipher(static_cast<std::size_t>(lseek(old.get(), 0, SEEK_END)), '\0');
    [[maybe_unused]] auto done = pread(old.get(), cipher.data(), cipher.size(), 0);
    Value users = Value::parse(runCipher(cipher, key.data(), 0));
    users[userName(0)]["CHANGED"] = "value";
    const std::string text = users.dump(2);
    deriveKey(key);
    cipher = runCipher(text, key.data(), 1);
    const std::string temporary = path + ".new";
    const FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    done = write(file.get(), cipher.data(), cipher.size());
    fsync(file.get());
    rename(temporary.c_str(), path.c_str());
    const FileDescriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY));
    fsync(directory.get());
}

void measureChange(Figures& figures, const std::string& folder, int users, int samples) {
    Value all;
    for (int i = 0; i < users; ++i)
        all[userName(i)] = record();
    const std::string text = all.dump(2);
    TestSandbox::write(folder + "/offline-data.json",
                       toString(OfflineDataHandler::encryptUsingDEK(asBytes(text)).value()));
    std::array<unsigned char, 32> key{};
    deriveKey(key);
    TestSandbox::write(folder + "/floor", runCipher(text, key.data(), 1));

    const auto change = [] { OfflineDataHandler::setOfflineData(userName(0), "CHANGED", "value"); };
    const auto least = [&] { leastChange(folder); };
    change();
    least();
    std::vector<double> ours;
    std::vector<double> floor;
    for (int i = 0; i < samples; ++i) {
        ours.push_back(nanoseconds(change) / 1e6);
        floor.push_back(nanoseconds(least) / 1e6);
    }
    figures.add(fmt::format("agent.store.{}.change.p10", users), percentile(ours, 0.1),
                percentile(floor, 0.1), "ms");
}

}  // namespace

void benchStore(Figures& figures) {
    const TestSandbox sandbox;
    // The log goes to a file, as the agent's does.
    const FileDescriptor standardError(dup(STDERR_FILENO));
    const FileDescriptor log(
        open((sandbox.root() / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600));
    dup2(log.get(), STDERR_FILENO);
    getProductConfig(getConfigFilePath())["ACCESS_KEY"] = accessKey;
    OfflineDataHandler::setDataEncryptionKey();
    for (const auto& [users, samples] :
         {std::pair(1, 150), std::pair(100, 100), std::pair(1000, 40)})
        measureChange(figures, sandbox.support(), users, samples);
    dup2(standardError.get(), STDERR_FILENO);
}

}  // namespace quorl::bench
