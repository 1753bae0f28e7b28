// One change of one key of one user, beside the least that any such change must do: two key
// derivations by OpenSSL, decrypt, parse, print, encrypt, write, sync the file, rename, sync the
// folder.
#include "ConfigParser.h"
#include "Logger.h"
#include "OfflineDataHandler.h"
#include "SampleData.h"
#include "TestSandbox.h"

#include <fmt/format.h>

namespace quorl::bench {
namespace {

using test::TestSandbox;

const std::string accessKey(64, 'a');

// Under the key derived anew, as each side of a change must.
std::string runCipher(const std::string& input, int encrypt) {
    std::array<unsigned char, 32> key{};
    PKCS5_PBKDF2_HMAC(accessKey.data(), static_cast<int>(accessKey.size()), nullptr, 0, 10'000,
                      EVP_sha256(), static_cast<int>(key.size()), key.data());
    return bareCipher(key, input, encrypt);
}

void leastChange(const std::string& folder, const std::string& user) {
    const std::string path = folder + "/floor";
    std::string cipher(std::filesystem::file_size(path), '\0');
    std::ifstream(path).read(cipher.data(), static_cast<std::streamsize>(cipher.size()));
    Value users = Value::parse(runCipher(cipher, 0));
    users[user]["CHANGED"] = "value";
    cipher = runCipher(users.dump(2), 1);
    const std::string temporary = path + ".new";
    const FileDescriptor file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600));
    expect(write(file.get(), cipher.data(), cipher.size()) > 0, "the bare store is not written");
    fsync(file.get());
    rename(temporary.c_str(), path.c_str());
    const FileDescriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY));
    fsync(directory.get());
}

}  // namespace

void benchStore() {
    const TestSandbox sandbox;
    const std::string folder = sandbox.support();
    // The log goes to a file, as the agent's does.
    initLog(sandbox.root() / "log");
    getProductConfig(getConfigFilePath())["ACCESS_KEY"] = accessKey;
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
        TestSandbox::write(folder + "/floor", runCipher(text, 1));
        print(fmt::format("agent.store.{}.change.p10", users), compare({turns}, change, least), ms,
              0.1);
    }
}

}  // namespace quorl::bench
