// One change of one key of one user, beside the least that any such change must do: two key
// derivations by OpenSSL, decrypt, parse, print, encrypt, write, sync the file, rename, sync the
// folder.
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Groups.h"
#include "Handle.h"
#include "Logger.h"
#include "OfflineDataHandler.h"
#include "SampleData.h"
#include "TestSandbox.h"

#include <fmt/format.h>
#include <openssl/evp.h>

namespace quorl::bench {
namespace {

using test::TestSandbox;
using CipherContext = Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

const std::string accessKey(64, 'a');

std::string userName(int number) {
    return fmt::format("user{}@EXAMPLE", number);
}

// Under the key derived anew, as each side of a change must.
std::string runCipher(const std::string& input, int encrypt) {
    std::array<unsigned char, 32> key{};
    PKCS5_PBKDF2_HMAC(accessKey.data(), static_cast<int>(accessKey.size()), nullptr, 0, 10'000,
                      EVP_sha256(), static_cast<int>(key.size()), key.data());
    const CipherContext context(EVP_CIPHER_CTX_new());
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

void leastChange(const std::string& folder) {
    const std::string path = folder + "/floor";
    const FileDescriptor old(open(path.c_str(), O_RDONLY));
    std::string cipher(static_cast<std::size_t>(lseek(old.get(), 0, SEEK_END)), '\0');
    [[maybe_unused]] auto done = pread(old.get(), cipher.data(), cipher.size(), 0);
    Value users = Value::parse(runCipher(cipher, 0));
    users[userName(0)]["CHANGED"] = "value";
    cipher = runCipher(users.dump(2), 1);
    const std::string temporary = path + ".new";
    const FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    done = write(file.get(), cipher.data(), cipher.size());
    fsync(file.get());
    rename(temporary.c_str(), path.c_str());
    const FileDescriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY));
    fsync(directory.get());
}

void measureChange(Figures& figures, const std::string& folder, int users, int turns) {
    const std::string secret(88, 's');
    Value all;
    for (int i = 0; i < users; ++i)
        all[userName(i)] = sampleRecord({{"1", sampleAuthenticator("app", secret)},
                                         {"7", sampleAuthenticator("token", secret)}},
                                        50);
    const std::string text = all.dump(2);
    TestSandbox::write(folder + "/offline-data.json",
                       toString(OfflineDataHandler::encryptUsingDEK(asBytes(text)).value()));
    TestSandbox::write(folder + "/floor", runCipher(text, 1));
    const auto change = [] {
        expect(OfflineDataHandler::setOfflineData(userName(0), "CHANGED", "value"),
               "the store does not take a change");
    };
    figures.add(fmt::format("agent.store.{}.change.p10", users),
                compare(change, [&] { leastChange(folder); }, {turns}), ms, 0.1);
}

}  // namespace

void benchStore(Figures& figures) {
    const TestSandbox sandbox;
    // The log goes to a file, as the agent's does.
    initLog(sandbox.root() / "log");
    getProductConfig(getConfigFilePath())["ACCESS_KEY"] = accessKey;
    OfflineDataHandler::setDataEncryptionKey();
    for (const auto& [users, turns] : {std::pair(1, 150), std::pair(100, 100), std::pair(1000, 40)})
        measureChange(figures, sandbox.support(), users, turns);
}

}  // namespace quorl::bench
