#pragma once

#include "AttemptGuard.h"
#include "ConfigParser.h"
#include "FakeAgent.h"
#include "OfflineDataHandler.h"
#include "PropertyList.h"
#include "TestServer.h"
#include "VerifierProtocol.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>

#include <deque>
#include <thread>

namespace quorl::test {

/// The module's end of one sign-in: the helper as a program, with its end of a pair as
/// descriptor 3.
class ModuleEnd {
  public:
    explicit ModuleEnd(const Subprocess::Options& options) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
        fcntl(ends[0], F_SETFD, FD_CLOEXEC);
        socket_.reset(ends[0]);
        const FileDescriptor theirs(ends[1]);
        Subprocess::Options all = options;
        all.command = {"bash", "-c", "exec \"$0\" 3<&\"$1\"", QUORL_BINARY_DIR "/bin/kesh-verify",
                       std::to_string(ends[1])};
        helper_ = std::make_unique<Subprocess>(all);
    }
    void send(const verifier::Packet& packet) {
        ::send(socket_.get(), packet.bytes.data(), packet.size, MSG_NOSIGNAL);
    }
    void start(const verifier::Start& start) {
        verifier::Packet packet;
        ASSERT_TRUE(verifier::encode(start, packet));
        send(packet);
    }
    /// Runs until the verdict: each question takes the next answer, the last one then stays.
    struct Reply {
        std::string text;
        verifier::Answer answer = verifier::Answer::Typed;
        std::chrono::milliseconds after{0};
    };
    void play(std::deque<Reply> replies) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (std::chrono::steady_clock::now() < end && next(end)) {
            if (kind_ == verifier::Kind::Say)
                said += std::string(verifier::decodeSay(received())->text) + "\n";
            if (kind_ == verifier::Kind::Verdict) {
                verdict = verifier::decodeVerdict(received());
                return;
            }
            if (kind_ != verifier::Kind::Ask)
                continue;
            asked.push_back(std::string(verifier::decodeAsk(received())->text));
            const Reply reply = replies.empty() ? Reply{} : replies.front();
            if (!replies.empty())
                replies.pop_front();
            std::this_thread::sleep_for(reply.after);
            verifier::Packet packet;
            verifier::encode(verifier::Reply{reply.answer, reply.text}, packet);
            send(packet);
        }
    }
    /// The next packet, or its lack before the time is up.
    bool next(std::chrono::steady_clock::time_point end) {
        pollfd entry{.fd = socket_.get(), .events = POLLIN, .revents = 0};
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (poll(&entry, 1, static_cast<int>(std::max<long>(left.count(), 0))) <= 0)
            return false;
        const ssize_t size = recv(socket_.get(), buffer_.data(), buffer_.size(), 0);
        size_ = size > 0 ? static_cast<std::size_t>(size) : 0;
        const auto kind = verifier::kindOf(received());
        kind_ = kind.value_or(verifier::Kind::Alive);
        return size > 0 && kind;
    }
    void hangUp() { socket_.reset(); }
    Subprocess& helper() { return *helper_; }
    std::string lastAsked() const { return asked.empty() ? "" : asked.back(); }

    std::vector<std::string> asked;
    std::string said;
    std::optional<verifier::Verdict> verdict;
    verifier::Kind kind_ = verifier::Kind::Alive;

  private:
    verifier::Received received() const { return {buffer_.data(), size_}; }

    FileDescriptor socket_;
    std::unique_ptr<Subprocess> helper_;
    std::array<unsigned char, verifier::packetLimit> buffer_{};
    std::size_t size_ = 0;
};

/// A machine with one user of many spellings, enrolled with one app, or with what a test says.
class HelperStage : public testing::Test {
  protected:
    static constexpr uid_t dora = 4711;
    static constexpr const char* accessKey =
        "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";
    static constexpr const char* secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
    using Settings = std::map<std::string, std::string>;

    HelperStage() {
        trustTestAuthority();
        TestSandbox::write(sandbox_.root() / "passwd",
                           "root:x:0:0::/:/bin/sh\ndora:x:4711:4711::/:/bin/sh\n"
                           "DORA:x:4711:4711::/:/bin/sh\nEXAMPLE\\dora:x:4711:4711::/:/bin/sh\n");
        TestSandbox::write(sandbox_.root() / "group", "root:x:0:\n");
        configure();
        OfflineDataHandler::setDataEncryptionKey();
        enroll(record());
    }
    void configure(Settings settings = {}) {
        settings.insert({{"SERVERNAME", "localhost"},
                         {"PORTNUMBER", "1"},
                         {"LOCALE_ID", "en"},
                         {"LOGIN_MFA", "true"},
                         {"OFFLINE_MFA", "true"},
                         {"PREAUTH_CHECK_REQUIRED", "true"},
                         {"AGENT_ID", "1001"},
                         {"ACCESS_KEY", underTheValueKey(accessKey)}});
        ASSERT_TRUE(writePropertyListFile(sandbox_.support() / "config.plist", settings));
    }
    static Value method(const std::string& name) {
        return {{"AUTH_DISPLAY_NAME", name}, {"SECRET_KEY", opensslEncrypted(secret, accessKey)},
                {"ALGORITHM_TYPE", "SHA1"},  {"DIGITS", 6},
                {"EXPIRY_TIME", 30},         {"AUTH_VARIANCE", 1}};
    }
    static Value record(int factors = 1, int limit = 10, int attempts = 0) {
        return {{"POLICY_DATA",
                 {{"MFA_NO_OF_FACTORS", factors},
                  {"ENABLED_AUTHS", {3}},
                  {"MANDATORY_AUTHS", Value::array()},
                  {"OFFLINE_MFA_LIMIT_TYPE", 2},
                  {"OFFLINE_MFA_LIMIT_VALUE", limit}}},
                {"USER_DATA",
                 {{"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", attempts},
                  {"LAST_ONLINE_MFA_TIME", 1},
                  {"AUTH_ENROLLMENT", {{"3", method("Phone")}}}}}};
    }
    static void enroll(const Value& record) {
        OfflineDataHandler::deleteUserOfflineData("dora@example.com");
        for (const auto& [key, value] : record.items())
            OfflineDataHandler::setOfflineData("dora@example.com", key, value);
    }
    static std::int64_t attempts() {
        return OfflineDataHandler::getOfflineData("dora@example.com")
            .value_or(Value::object())
            .value("/USER_DATA/SUCCESSFUL_OFFLINE_MFA_ATTEMPTS"_json_pointer, std::int64_t{-1});
    }
    GuardState guard() { return *guard_.see(); }
    /// The code of now, or of some time off it, by an independent program.
    static std::string code(int secondsOff = 0) {
        const auto time = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
        return outputOf({"oathtool", "--totp", "--base32", secret, "--now",
                         fmt::format("@{}", time + secondsOff)})
            .substr(0, 6);
    }
    Subprocess::Options environment() const {
        return {.command = {},
                .environment = {{"LD_PRELOAD", "libnss_wrapper.so"},
                                {"NSS_WRAPPER_PASSWD", sandbox_.root() / "passwd"},
                                // The sanitizers refuse it.
                                {"NSS_WRAPPER_DISABLE_DEEPBIND", "1"},
                                {"NSS_WRAPPER_GROUP", sandbox_.root() / "group"},
                                {"ASAN_OPTIONS", "verify_asan_link_order=0"}}};
    }
    static verifier::Start sshd() {
        return {.service = "sshd",
                .user = "dora",
                .tty = "ssh",
                .rhost = "",
                .language = "",
                .page = "/mfa/verify",
                .left = std::chrono::seconds(100)};
    }
    static verifier::Start lightdm() {
        verifier::Start start = sshd();
        start.service = "lightdm";
        start.key = verifier::KeyRule::Signed;
        return start;
    }
    std::unique_ptr<ModuleEnd> signIn(const verifier::Start& start,
                                      const std::deque<ModuleEnd::Reply>& replies = {}) {
        auto module = std::make_unique<ModuleEnd>(environment());
        module->start(start);
        module->play(replies);
        return module;
    }
    std::string runtimeDir() const { return sandbox_.root() / "run"; }
    std::string log() const { return TestSandbox::read(sandbox_.support() / "VantorixClient.log"); }

    const TestSandbox sandbox_;
    AttemptGuard guard_{(sandbox_.root() / "guard").string(), dora, systemClock()};
};

}  // namespace quorl::test
