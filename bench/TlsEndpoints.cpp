#include "TlsEndpoints.h"

#include "Figures.h"

#include <fmt/format.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <string_view>

namespace quorl::bench {
namespace {

constexpr std::string_view lengthHeader = "Content-Length: ";

/// Reads one message: headers, and as much body as they announce.
std::string readMessage(BIO* connection) {
    std::string message;
    std::array<char, 4096> buffer{};
    std::size_t wanted = std::string::npos;
    while (message.size() < wanted) {
        const int got = BIO_read(connection, buffer.data(), static_cast<int>(buffer.size()));
        if (got <= 0)
            return {};
        message.append(buffer.data(), static_cast<std::size_t>(got));
        const std::size_t end = message.find("\r\n\r\n");
        if (wanted != std::string::npos || end == std::string::npos)
            continue;
        const std::size_t at = message.find(lengthHeader);
        wanted = end + 4;
        if (at < end)
            wanted += std::stoul(message.substr(at + lengthHeader.size()));
    }
    return message;
}

void writeMessage(BIO* connection, const std::string& head, const std::string& body) {
    const std::string message =
        fmt::format("{}\r\n{}{}\r\n\r\n{}", head, lengthHeader, body.size(), body);
    BIO_write(connection, message.data(), static_cast<int>(message.size()));
}

}  // namespace

Connection listenOn(const std::string& port) {
    Connection listener(BIO_new_accept(("127.0.0.1:" + port).c_str()));
    BIO_set_bind_mode(listener.get(), BIO_BIND_REUSEADDR);
    // The first one only begins to listen.
    expect(BIO_do_accept(listener.get()) == 1, "a port cannot be listened on");
    return listener;
}

TlsServer::TlsServer(const std::string& certificate)
    : context_(SSL_CTX_new(TLS_server_method())), listener_(listenOn("0")) {
    SSL_CTX_use_certificate_chain_file(context_.get(), (certificate + ".pem").c_str());
    SSL_CTX_use_PrivateKey_file(context_.get(), (certificate + ".key").c_str(), SSL_FILETYPE_PEM);
    SSL_CTX_set_mode(context_.get(), SSL_MODE_AUTO_RETRY);
    BIO_set_accept_bios(listener_.get(), BIO_new_ssl(context_.get(), 0));
    port_ = BIO_get_accept_port(listener_.get());
    thread_ = std::thread([this] { serve(); });
}

TlsServer::~TlsServer() {
    shutdown(static_cast<int>(BIO_get_fd(listener_.get(), nullptr)), SHUT_RDWR);
    thread_.join();
}

void TlsServer::serve() {
    while (BIO_do_accept(listener_.get()) == 1) {
        const Connection peer(BIO_pop(listener_.get()));
        BIO_set_tcp_ndelay(static_cast<int>(BIO_get_fd(peer.get(), nullptr)), 1);
        while (!readMessage(peer.get()).empty())
            writeMessage(peer.get(), "HTTP/1.1 200 OK\r\nContent-Type: application/json",
                         R"({"result": "success"})");
    }
}

std::string barePost(const std::string& port, const std::string& authorities,
                     const std::string& path, const std::string& body) {
    const TlsContext context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_load_verify_dir(context.get(), authorities.c_str());
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
        return {};
    writeMessage(server.get(),
                 fmt::format("POST {} HTTP/1.1\r\nHost: localhost:{}\r\nAccept: */*\r\n"
                             "Content-Type: application/x-www-form-urlencoded",
                             path, port),
                 body);
    return readMessage(server.get());
}

}  // namespace quorl::bench
