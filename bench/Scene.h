#pragma once

#include "AgentClient.h"
#include "AgentStage.h"
#include "CryptoUtils.h"
#include "Figures.h"
#include "Handle.h"
#include "Logger.h"
#include "OfflineDataHandler.h"

#include <poll.h>
#include <sys/inotify.h>

#include <functional>
#include <future>

namespace quorl::bench {

using namespace std::chrono_literals;
using test::AgentStage;
using test::TestSandbox;

/// An authenticator's data with its encrypted secret.
inline Value sampleAuthenticator(const std::string& encryptedSecret) {
    Value data = Value::parse(R"({"AUTH_DISPLAY_NAME": "Phone", "ALGORITHM_TYPE": "SHA1",
                                  "EXPIRY_TIME": 30, "DIGITS": 6, "AUTH_VARIANCE": 1})");
    data["SECRET_KEY"] = encryptedSecret;
    return data;
}

/// A user's record with that authenticator enrolled under each of the numbers.
inline Value sampleRecord(const std::string& encryptedSecret, const std::vector<int>& numbers) {
    Value record = Value::parse(R"({
        "POLICY_DATA": {"MFA_NO_OF_FACTORS": 1, "MANDATORY_AUTHS": [],
                        "OFFLINE_MFA_LIMIT_TYPE": 2, "OFFLINE_MFA_LIMIT_VALUE": 10000},
        "USER_DATA": {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS": 3, "LAST_ONLINE_MFA_TIME": 1794702491}})");
    record["POLICY_DATA"]["ENABLED_AUTHS"] = numbers;
    for (const int number : numbers)
        record["USER_DATA"]["AUTH_ENROLLMENT"][std::to_string(number)] =
            sampleAuthenticator(encryptedSecret);
    return record;
}

/// Waits until a cleared window is at rest and the next page's process waits for it; each time a
/// little longer, so that what follows meets the screen's frames at every phase.
inline void settle() {
    static useconds_t rounds = 0;
    usleep(800'000 + ++rounds * 3'700 % 50'000);
}

/// A request under way to the agent of this process's folders; a program of its own would add its
/// start.
inline AgentRequest send(const Value& request) {
    auto sent = AgentRequest::send(agentAddress(), request, 5s);
    expect(sent.has_value(), "the agent cannot be reached");
    return std::move(*sent);
}
/// The agent's answer to the request.
inline Value ask(const Value& request) {
    const auto answer = send(request).wait(20s);
    expect(answer.has_value(), "the agent does not answer");
    return *answer;
}

inline const Bytes accessKey(32, 0x5A);
inline constexpr const char* userSecret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";

/// Serves the page painted.html as "/painted".
inline void serveThePage(AgentStage& stage) {
    stage.startServer({"--access-key", convertDataBytesToHex(accessKey), "--only", "/painted",
                       "--reply-file", QUORL_SOURCE_DIR "/bench/painted.html", "--reply-type",
                       "text/html"});
}

inline std::string logOf(const AgentStage& stage) {
    return stage.sandbox.support() / "VantorixClient.log";
}

/// Configures a registered machine on which the user is enrolled for logons without the server.
inline void enroll(AgentStage& stage, const std::string& user) {
    initLog(logOf(stage));
    stage.configure({{"LOGIN_MFA", "true"},
                     {"OFFLINE_MFA", "true"},
                     {"PREAUTH_CHECK_REQUIRED", "true"},
                     {"AGENT_ID", "1001"},
                     {"ACCESS_KEY", test::underTheValueKey(convertDataBytesToHex(accessKey))}});
    const Value record = sampleRecord(encryptText(userSecret, accessKey, iv).value(), {3});
    expect(OfflineDataHandler::replaceRecord(user, record, systemClock()) ==
               OfflineDataHandler::Replaced::done,
           "the user cannot be enrolled");
}

/// Has the agent let the user pass without the server; gives the moment of its answer.
inline double askOffline(const std::string& user) {
    const Value answer =
        ask({{"OFFLINE_MFA", true}, {"USER_NAME", user}, {"DOMAIN_NAME", "EXAMPLE"}});
    expect(stringValue(answer, "MFA_AUTH_RESULT") == "SUCCESS", "a right code was refused");
    return now();
}

/// Follows a file as it grows, woken by each line, from the present end on; the file exists.
class GrowingFile {
  public:
    explicit GrowingFile(const std::string& path)
        : file_(path, std::ios::ate), changes_(inotify_init1(IN_CLOEXEC)) {
        inotify_add_watch(changes_.get(), path.c_str(), IN_MODIFY);
    }
    /// Reads until the text has come; ends the program when nothing comes for 20 s.
    void await(const std::string& text) {
        for (std::string seen; seen.find(text) == std::string::npos;) {
            pollfd entry{.fd = changes_.get(), .events = POLLIN, .revents = 0};
            std::array<char, 4096> notices{};
            expect(poll(&entry, 1, 20'000) == 1, text.c_str());
            (void)!read(changes_.get(), notices.data(), notices.size());
            // Beyond the end that was met before.
            file_.clear();
            seen.append(std::istreambuf_iterator<char>(file_), {});
        }
    }

  private:
    std::ifstream file_;
    FileDescriptor changes_;
};

/// The moment at which the offline page takes keys, and the nanoseconds from Return on the right
/// code to the end; the start of the program that presses it is included.
struct OfflinePage {
    double ready;
    double verdict;
};
/// Passes the page that `run` asks for; it gives the moment of its end.
inline OfflinePage passOffline(AgentStage& stage, const std::function<double()>& run) {
    GrowingFile log(logOf(stage));
    auto ended = std::async(std::launch::async, run);
    // Its last script has been handed over right after this line.
    log.await("MFAController:: didFinishNavigation : loading offline related content");
    const double ready = now();
    stage.type(AgentStage::code(userSecret));
    const double start = now();
    stage.press("Return");
    return {ready, ended.get() - start};
}

/// A named pipe, open for both ends, so that no opening waits for the other one.
inline FileDescriptor makePipe(const std::string& path) {
    mkfifo(path.c_str(), 0600);
    return FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
}

}  // namespace quorl::bench
