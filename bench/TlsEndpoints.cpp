#include "TlsEndpoints.h"

#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <string_view>

namespace quorl::bench {
namespace {

/// Reads one message: headers, and as much body as they announce.
std::string readMessage(SSL* tls) {
    std::string message;
    std::array<char, 4096> buffer{};
    std::size_t wanted = std::string::npos;
    while (message.size() < wanted) {
        const int got = SSL_read(tls, buffer.data(), static_cast<int>(buffer.size()));
        if (got <= 0)
            return {};
        message.append(buffer.data(), static_cast<std::size_t>(got));
        const std::size_t end = message.find("\r\n\r\n");
        if (wanted != std::string::npos || end == std::string::npos)
            continue;
        constexpr std::string_view lengthHeader = "Content-Length: ";
        const std::size_t at = message.find(lengthHeader);
        wanted = end + 4;
        if (at < end)
            wanted += std::stoul(message.substr(at + lengthHeader.size()));
    }
    return message;
}

void writeMessage(SSL* tls, const std::string& message) {
    SSL_write(tls, message.data(), static_cast<int>(message.size()));
}

void sendAtOnce(const FileDescriptor& connection) {
    const int on = 1;
    setsockopt(connection.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

}  // namespace

TlsServer::TlsServer(const std::string& certificate, const std::string& key)
    : context_(SSL_CTX_new(TLS_server_method())),
      listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    SSL_CTX_use_certificate_chain_file(context_.get(), certificate.c_str());
    SSL_CTX_use_PrivateKey_file(context_.get(), key.c_str(), SSL_FILETYPE_PEM);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(listener_.get(), reinterpret_cast<sockaddr*>(&address), length);
    getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    listen(listener_.get(), 16);
    thread_ = std::thread([this] { serve(); });
}

TlsServer::~TlsServer() {
    shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
}

void TlsServer::serve() {
    const std::string body = R"({"result": "success"})";
    const std::string reply = fmt::format(
        "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: {}\r\n\r\n{}",
        body.size(), body);
    for (;;) {
        const FileDescriptor connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection)
            return;
        sendAtOnce(connection);
        const TlsSession tls(SSL_new(context_.get()));
        SSL_set_fd(tls.get(), connection.get());
        if (SSL_accept(tls.get()) != 1)
            continue;
        while (!readMessage(tls.get()).empty())
            writeMessage(tls.get(), reply);
    }
}

std::string barePost(int port, const std::string& authorities, const std::string& path,
                     const std::string& body) {
    const TlsContext context(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_load_verify_dir(context.get(), authorities.c_str());
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    const FileDescriptor connection(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (connect(connection.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return {};
    sendAtOnce(connection);
    const TlsSession tls(SSL_new(context.get()));
    SSL_set_fd(tls.get(), connection.get());
    SSL_set_tlsext_host_name(tls.get(), "localhost");
    SSL_set1_host(tls.get(), "localhost");
    if (SSL_connect(tls.get()) != 1)
        return {};
    writeMessage(tls.get(), fmt::format("POST {} HTTP/1.1\r\nHost: localhost:{}\r\nAccept: */*\r\n"
                                        "Content-Type: application/x-www-form-urlencoded\r\n"
                                        "Content-Length: {}\r\n\r\n{}",
                                        path, port, body.size(), body));
    std::string reply = readMessage(tls.get());
    SSL_shutdown(tls.get());
    return reply;
}

}  // namespace quorl::bench
