// The signature of a request, and one posted request over a connection of its own, beside the same
// work done bare with OpenSSL.
#include "CommonUtils.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "Groups.h"
#include "HttpClient.h"
#include "Logger.h"
#include "ServerCommunicator.h"
#include "Subprocess.h"
#include "TlsEndpoints.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <array>

namespace quorl::bench {
namespace {

const std::string path = "/RestAPI/logonagent/updateStatus";
const std::string accessKey = "00112233445566778899aabbccddeeff0123456789abcdef0123456789abcdef";

/// HMAC, hexadecimal, base64, with the algorithm fetched once.
class BareSigner {
  public:
    std::string sign(const std::string& key, const std::string& message) const {
        static const char digits[] = "0123456789abcdef";
        std::array<char, 7> name = {'S', 'H', 'A', '2', '5', '6', '\0'};
        const std::array<OSSL_PARAM, 2> parameters = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, name.data(), 0),
            OSSL_PARAM_construct_end()};
        const MacContext context(EVP_MAC_CTX_new(mac_.get()));
        std::array<unsigned char, 32> digest{};
        std::size_t size = 0;
        EVP_MAC_init(context.get(), bytes(key), key.size(), parameters.data());
        EVP_MAC_update(context.get(), bytes(message), message.size());
        EVP_MAC_final(context.get(), digest.data(), &size, digest.size());
        std::array<unsigned char, 64> hex{};
        for (std::size_t i = 0; i < digest.size(); ++i) {
            hex[2 * i] = static_cast<unsigned char>(digits[digest[i] >> 4]);
            hex[2 * i + 1] = static_cast<unsigned char>(digits[digest[i] & 15]);
        }
        std::string text(88, '\0');
        std::array<unsigned char, 89> base64{};
        EVP_EncodeBlock(base64.data(), hex.data(), static_cast<int>(hex.size()));
        text.assign(base64.begin(), base64.begin() + 88);
        return text;
    }

  private:
    using Mac = Handle<EVP_MAC, EVP_MAC_free>;
    using MacContext = Handle<EVP_MAC_CTX, EVP_MAC_CTX_free>;
    static const unsigned char* bytes(const std::string& text) {
        return reinterpret_cast<const unsigned char*>(text.data());
    }
    Mac mac_{EVP_MAC_fetch(nullptr, "HMAC", nullptr)};
};

/// What the figures compare must be the same thing.
bool same(const std::string& ours, const std::string& theirs) {
    if (ours == theirs)
        return true;
    std::fprintf(stderr, "https: \"%s\" is not \"%s\"\n", ours.c_str(), theirs.c_str());
    return false;
}

void benchSignature(Figures& figures, const ServerCommunicator& communicator) {
    const BareSigner bare;
    const std::string date = getCurrentUTCDate();
    const auto sign = [&] {
        return base64Encode(
            asBytes(convertDataBytesToHex(getHMACSHA256Hash(accessKey, date + "POST" + path))));
    };
    const auto bareSign = [&] { return bare.sign(accessKey, date + "POST" + path); };
    if (!same(sign(), bareSign()))
        return;
    const Pair pure = comparePair([&] { sign(); }, [&] { bareSign(); }, 200, 200);
    figures.add("agent.sign", pure.work / 1e3, pure.floor / 1e3, "us");
    const Pair whole =
        comparePair([&] { communicator.getAuthRequestHeaders(accessKey, "1001", path, "POST"); },
                    [&] { bareSign(); }, 200, 20);
    figures.add("agent.sign.headers", whole.work / 1e3, "us");
}

void benchPost(Figures& figures, const std::string& folder) {
    const TlsServer server(folder + "/server.pem", folder + "/server.key");
    const std::string authorities = folder + "/certs";
    const std::string form = "status=install&machineName=bench&domainName=&version=1";
    const std::string url = "https://localhost:" + std::to_string(server.port()) + path;
    const auto post = [&] {
        return HttpClient(true).makeSyncRequest("POST", url, "", form, Value::object());
    };
    const auto bare = [&] { return barePost(server.port(), authorities, path, form); };
    const std::string reply = bare();
    if (!same(post().dump(), Value::parse(reply.substr(reply.find('{')), nullptr, false).dump()))
        return;
    const Pair pair = comparePair([&] { post(); }, [&] { bare(); }, 300, 1);
    figures.add("agent.https.post", pair.work / 1e6, pair.floor / 1e6, "ms");
}

}  // namespace

void benchHttps(Figures& figures) {
    const test::TestSandbox sandbox;
    const std::string folder = sandbox.root() / "certificates";
    test::Subprocess({.command = {QUORL_BINARY_DIR "/bin/make-test-certificates", folder}}).wait();
    setenv("SSL_CERT_DIR", (folder + "/certs").c_str(), 1);
    // The log goes where the agent's goes, to a file; complaints of ours to the terminal.
    const FileDescriptor terminal(dup(STDERR_FILENO));
    {
        ServerCommunicator communicator;
        benchSignature(figures, communicator);
        benchPost(figures, folder);
    }
    destroyLog();
    dup2(terminal.get(), STDERR_FILENO);
}

}  // namespace quorl::bench
