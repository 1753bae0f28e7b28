// The signature of a request, and one posted request over a connection of its own, beside the same
// work done bare with OpenSSL.
#include "CommonUtils.h"
#include "CryptoUtils.h"
#include "Groups.h"
#include "HttpClient.h"
#include "ServerCommunicator.h"
#include "TestServer.h"
#include "TlsEndpoints.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <array>

namespace quorl::bench {
namespace {

const std::string path = "/RestAPI/logonagent/updateStatus";
const std::string accessKey = "00112233445566778899aabbccddeeff0123456789abcdef0123456789abcdef";

/// HMAC, hexadecimal, base64, with the algorithm fetched once.
std::string signBare(const std::string& key, const std::string& message) {
    static const Handle<EVP_MAC, EVP_MAC_free> mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
    static const char digits[] = "0123456789abcdef";
    char name[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, name, 0),
        OSSL_PARAM_construct_end()};
    const Handle<EVP_MAC_CTX, EVP_MAC_CTX_free> context(EVP_MAC_CTX_new(mac.get()));
    std::array<unsigned char, 32> digest{};
    std::size_t size = 0;
    EVP_MAC_init(context.get(), asBytes(key).data(), key.size(), parameters);
    EVP_MAC_update(context.get(), asBytes(message).data(), message.size());
    EVP_MAC_final(context.get(), digest.data(), &size, digest.size());
    std::array<unsigned char, 64> hex{};
    for (std::size_t i = 0; i < digest.size(); ++i) {
        hex[2 * i] = static_cast<unsigned char>(digits[digest[i] >> 4]);
        hex[2 * i + 1] = static_cast<unsigned char>(digits[digest[i] & 15]);
    }
    std::array<unsigned char, 89> base64{};
    EVP_EncodeBlock(base64.data(), hex.data(), static_cast<int>(hex.size()));
    return {base64.begin(), base64.begin() + 88};
}

void benchSignature(Figures& figures) {
    const ServerCommunicator communicator(systemClock());
    const std::string date = getCurrentUTCDate(systemClock());
    const auto sign = [&] {
        return base64Encode(
            asBytes(convertDataBytesToHex(getHMACSHA256Hash(accessKey, date + "POST" + path))));
    };
    const auto bare = [&] { return signBare(accessKey, date + "POST" + path); };
    expect(sign() == bare(), "the signatures differ");
    figures.add("agent.sign", compare(sign, bare, {.turns = 200, .runs = 200}), us);
    const auto headers = [&] {
        return communicator.getAuthRequestHeaders(accessKey, "1001", path, "POST");
    };
    const Samples whole = compare(headers, bare, {.turns = 200, .runs = 20});
    figures.add("agent.sign.headers", percentile(whole.ours), us);
}

void benchPost(Figures& figures) {
    const TlsServer server(test::certificateFolder() + "/server");
    const std::string form = "status=install&machineName=bench&domainName=&version=1";
    const std::string url = "https://localhost:" + server.port() + path;
    const auto post = [&] {
        return HttpClient(CertificatePolicy::restrict)
            .makeSyncRequest("POST", url, "", form, Value::object());
    };
    const auto bare = [&] {
        return barePost(server.port(), test::certificateFolder() + "/certs", path, form);
    };
    const std::string reply = bare();
    const auto body = reply.find('{');
    expect(body != reply.npos && post() == Value::parse(reply.substr(body), nullptr, false),
           "the replies differ");
    figures.add("agent.https.post", compare(post, bare, {300}), ms);
}

}  // namespace

void benchHttps(Figures& figures) {
    // Making a communicator lets the log go where the agent's goes, to a file.
    const test::TestSandbox sandbox;
    test::trustTestAuthority();
    benchSignature(figures);
    benchPost(figures);
}

}  // namespace quorl::bench
