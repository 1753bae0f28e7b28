// The signature of a request, and one posted request over a connection of its own, beside the same
// work done bare with OpenSSL. Both sides post to the least HTTPS server there can be.
#include "CommonUtils.h"
#include "CryptoUtils.h"
#include "Figures.h"
#include "HttpClient.h"
#include "ServerCommunicator.h"
#include "TestServer.h"

#include <fmt/format.h>
#include <openssl/core_names.h>
#include <openssl/ssl.h>

namespace quorl::bench {
namespace {

using TlsContext = Handle<SSL_CTX, SSL_CTX_free>;
using Connection = Handle<BIO, BIO_free_all>;

const std::string path = "/RestAPI/logonagent/updateStatus";
const std::string accessKey(64, '5');
const std::string form = "status=install&machineName=bench&domainName=&version=1";
const std::string result = R"({"result": "success"})";

/// HMAC, hexadecimal, base64, with the algorithm fetched once.
std::string signBare(const std::string& key, const std::string& message) {
    static const Handle<EVP_MAC, EVP_MAC_free> mac(EVP_MAC_fetch(nullptr, "HMAC", nullptr));
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
    std::string hex(64, '\0');
    for (std::size_t i = 0; i < hex.size(); ++i)
        hex[i] = "0123456789abcdef"[digest[i / 2] >> (4 - i % 2 * 4) & 15];
    std::string base64(88, '\0');
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), asBytes(hex).data(),
                    static_cast<int>(hex.size()));
    return base64;
}

// Reads up to those words, with which the other side's only message ends; false at its end.
bool readTo(BIO* connection, const std::string& words) {
    std::array<char, 4096> buffer{};
    for (std::string message; !message.ends_with(words);) {
        const int got = BIO_read(connection, buffer.data(), static_cast<int>(buffer.size()));
        if (got <= 0)
            return false;
        message.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return true;
}

void send(BIO* connection, const std::string& head, const std::string& body) {
    BIO_puts(connection,
             fmt::format("{}\r\nContent-Length: {}\r\n\r\n{}", head, body.size(), body).c_str());
}

// Answers on a thread that lasts as long as the process; gives the port.
std::string startServer() {
    static const TlsContext context(SSL_CTX_new(TLS_server_method()));
    const std::string certificate = test::certificateFolder() + "/server";
    SSL_CTX_use_certificate_chain_file(context.get(), (certificate + ".pem").c_str());
    SSL_CTX_use_PrivateKey_file(context.get(), (certificate + ".key").c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_set_mode(context.get(), SSL_MODE_AUTO_RETRY);
    BIO* listener = BIO_new_accept("127.0.0.1:0");
    // The first one only begins to listen.
    expect(BIO_do_accept(listener) == 1, "a port cannot be listened on");
    BIO_set_accept_bios(listener, BIO_new_ssl(context.get(), 0));
    std::thread([listener] {
        while (BIO_do_accept(listener) == 1) {
            const Connection peer(BIO_pop(listener));
            BIO_set_tcp_ndelay(static_cast<int>(BIO_get_fd(peer.get(), nullptr)), 1);
            while (readTo(peer.get(), form))
                send(peer.get(), "HTTP/1.1 200 OK\r\nContent-Type: application/json", result);
        }
    }).detach();
    return BIO_get_accept_port(listener);
}

/// Connects to localhost, verifies certificate and host name against the hashed folder, posts.
bool postBare(const std::string& port) {
    const TlsContext context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_load_verify_dir(context.get(), (test::certificateFolder() + "/certs").c_str());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    const Connection server(BIO_new_ssl_connect(context.get()));
    BIO_set_conn_hostname(server.get(), ("127.0.0.1:" + port).c_str());
    BIO_set_conn_mode(server.get(), BIO_SOCK_NODELAY);
    SSL* tls = nullptr;
    BIO_get_ssl(server.get(), &tls);
    SSL_set_tlsext_host_name(tls, "localhost");
    SSL_set1_host(tls, "localhost");
    if (BIO_do_connect(server.get()) != 1)
        return false;
    send(server.get(),
         fmt::format("POST {} HTTP/1.1\r\nHost: localhost:{}\r\nAccept: */*\r\n"
                     "Content-Type: application/x-www-form-urlencoded",
                     path, port),
         form);
    return readTo(server.get(), result);
}

}  // namespace

void benchHttps() {
    // Making a communicator lets the log go where the agent's goes, to a file.
    const test::TestSandbox sandbox;
    test::trustTestAuthority();
    const ServerCommunicator communicator(systemClock());
    const std::string date = getCurrentUTCDate(systemClock());
    const auto sign = [&] {
        return base64Encode(
            asBytes(convertDataBytesToHex(getHMACSHA256Hash(accessKey, date + "POST" + path))));
    };
    const auto signedBare = [&] { return signBare(accessKey, date + "POST" + path); };
    expect(sign() == signedBare(), "the signatures differ");
    print("agent.sign", compare({.turns = 200, .runs = 200}, sign, signedBare), us);
    const auto headers = [&] {
        communicator.getAuthRequestHeaders(accessKey, "1001", path, "POST");
    };
    const Samples whole = compare({.turns = 200, .runs = 20}, headers, [] {});
    print("agent.sign.headers", percentile(whole.ours), us);

    const std::string port = startServer();
    const auto post = [&] {
        const auto reply = HttpClient(CertificatePolicy::restrict)
                               .makeSyncRequest("POST", "https://localhost:" + port + path, "",
                                                form, Value::object());
        expect(reply == Value::parse(result), "a post fails");
    };
    const auto bare = [&] { expect(postBare(port), "a bare post fails"); };
    print("agent.https.post", compare({300}, post, bare), ms);
}

}  // namespace quorl::bench
