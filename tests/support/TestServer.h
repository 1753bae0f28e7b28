#pragma once

#include "Subprocess.h"

#include <nlohmann/json.hpp>

#include <sstream>

namespace quorl::test {

/// The folder of the test authority and its certificates, made by the build.
inline std::string certificateFolder() {
    return QUORL_BINARY_DIR "/test-certificates";
}

/// Lets this process, and what it starts, trust the test authority alone, without any proxy.
/// Before the first request.
inline void trustTestAuthority() {
    setenv("SSL_CERT_DIR", (certificateFolder() + "/certs").c_str(), 1);
    for (const char* name : {"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"})
        unsetenv(name);
}

/// The self-service server on a port of its own, ended with this object. Link `test_server`.
class TestServer {
  public:
    /// The name of a certificate (see make-test-certificates), and the server's own switches.
    explicit TestServer(const std::string& certificate = "server",
                        const std::vector<std::string>& switches = {})
        : process_({.command = command(certificate, switches),
                    .output = (folder_ / "out").string(),
                    .errors = (folder_ / "errors").string()}) {
        const bool ready =
            waitFor([this] { return readPort() || !process_.running(); }, std::chrono::seconds(30));
        EXPECT_TRUE(ready && port_ > 0) << TestSandbox::read(folder_ / "errors");
    }
    ~TestServer() {
        process_.stop(SIGTERM);
        std::filesystem::remove_all(folder_);
    }
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path, const std::string& host = "localhost") const {
        return "https://" + host + ":" + std::to_string(port_) + path;
    }
    /// The requests received so far, in order: method, target, path, headers, body, body_base64.
    std::vector<nlohmann::json> requests() const {
        std::vector<nlohmann::json> all;
        std::istringstream lines(TestSandbox::read(folder_ / "state"));
        // A line without its end is still being written.
        for (std::string line; std::getline(lines, line) && !lines.eof();)
            all.push_back(nlohmann::json::parse(line));
        return all;
    }
    /// The values of a request's headers of that name, whatever its case.
    static std::vector<std::string> headers(const nlohmann::json& request,
                                            const std::string& name) {
        std::vector<std::string> values;
        for (const auto& field : request["headers"])
            if (strcasecmp(field[0].get<std::string>().c_str(), name.c_str()) == 0)
                values.push_back(field[1]);
        return values;
    }

  private:
    static std::filesystem::path makeFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "quorl-server-XXXXXX").string();
        return mkdtemp(pattern.data());
    }
    std::vector<std::string> command(const std::string& certificate,
                                     const std::vector<std::string>& switches) const {
        const std::string base = certificateFolder() + "/" + certificate;
        std::vector<std::string> words = {QUORL_SOURCE_DIR "/tools/selfservice-server",
                                          "--cert",
                                          base + ".pem",
                                          "--key",
                                          base + ".key",
                                          "--state",
                                          (folder_ / "state").string()};
        words.insert(words.end(), switches.begin(), switches.end());
        return words;
    }
    bool readPort() {
        std::istringstream line(TestSandbox::read(folder_ / "out"));
        std::string word;
        return line >> word >> port_ && word == "ready";
    }

    std::filesystem::path folder_ = makeFolder();
    int port_ = 0;
    Subprocess process_;
};

}  // namespace quorl::test
