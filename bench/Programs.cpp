#include "Programs.h"

#include "AgentClient.h"
#include "Logger.h"
#include "OfflineDataHandler.h"
#include "SampleData.h"

#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>

#include <future>

namespace quorl::bench {
namespace {

using namespace std::chrono_literals;
using test::AgentStage;
using test::TestSandbox;

constexpr const char* paintedPage =
    "<!doctype html><title>Page</title><body style='font:20px sans-serif'><h1>A page</h1>"
    "<form><input autofocus><button>OK</button></form><script>"
    "requestAnimationFrame(() => requestAnimationFrame(() => "
    "window.webkit.messageHandlers.MACLoginAgent.postMessage('{\"SYSTEM_MFA_RESULT\":"
    "\"SUCCESS\"}')))</script>";
constexpr const char* userSecret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
const Bytes accessKey(32, 0x5A);

std::string logOf(const AgentStage& stage) {
    return stage.sandbox.support() / "VantorixClient.log";
}

}  // namespace

void settle() {
    static useconds_t rounds = 0;
    usleep(800'000 + ++rounds * 3'700 % 50'000);
}

Value ask(const Value& request) {
    auto sent = AgentRequest::send(agentAddress(), request, 5s);
    const auto answer = sent ? sent->wait(20s) : tl::unexpected(sent.error());
    expect(answer.has_value(), "the agent does not answer");
    return *answer;
}

void serveThePage(AgentStage& stage) {
    const std::string page = stage.sandbox.root() / "painted.html";
    TestSandbox::write(page, paintedPage);
    stage.startServer({"--access-key", convertDataBytesToHex(accessKey), "--only", "/painted",
                       "--reply-file", page, "--reply-type", "text/html"});
}

void enroll(AgentStage& stage, const std::string& user) {
    initLog(logOf(stage));
    stage.configure({{"LOGIN_MFA", "true"},
                     {"OFFLINE_MFA", "true"},
                     {"PREAUTH_CHECK_REQUIRED", "true"},
                     {"AGENT_ID", "1001"},
                     {"ACCESS_KEY", AgentStage::encryptedKey(convertDataBytesToHex(accessKey))}});
    const Value record = sampleRecord(encryptText(userSecret, accessKey, iv).value(), {3});
    expect(OfflineDataHandler::replaceRecord(user, record, systemClock()) ==
               OfflineDataHandler::Replaced::done,
           "the user cannot be enrolled");
}

double askOffline(const std::string& user) {
    const Value answer =
        ask({{"OFFLINE_MFA", true}, {"USER_NAME", user}, {"DOMAIN_NAME", "EXAMPLE"}});
    expect(stringValue(answer, "MFA_AUTH_RESULT") == "SUCCESS", "a right code was refused");
    return now();
}

OfflinePage passOffline(AgentStage& stage, const std::function<double()>& run) {
    LineReader log(logOf(stage));
    auto ended = std::async(std::launch::async, run);
    // Its last script has been handed over right after this line.
    log.await("MFAController:: didFinishNavigation : loading offline related content");
    const double ready = now();
    stage.type(AgentStage::code(userSecret));
    const double start = now();
    stage.press("Return");
    return {ready, ended.get() - start};
}

FileDescriptor makePipe(const std::string& path) {
    unlink(path.c_str());
    mkfifo(path.c_str(), 0600);
    return FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
}

LineReader::LineReader(const std::string& path)
    : file_(path, std::ios::ate), changes_(inotify_init1(IN_CLOEXEC)) {
    inotify_add_watch(changes_.get(), path.c_str(), IN_MODIFY);
}

void LineReader::await(const std::string& text) {
    const double end = now() + 20 * s.size;
    for (std::string line, part; now() < end;) {
        std::getline(file_, part);
        line += part;
        if (file_.good()) {
            if (line.find(text) != std::string::npos)
                return;
            line.clear();
            continue;
        }
        // The end of the file, for now.
        file_.clear();
        pollfd entry{.fd = changes_.get(), .events = POLLIN, .revents = 0};
        std::array<char, 4096> notices{};
        if (poll(&entry, 1, 100) > 0)
            (void)!read(changes_.get(), notices.data(), notices.size());
    }
    expect(false, text.c_str());
}

MinimalBrowser::MinimalBrowser(AgentStage& stage) {
    const std::string input = stage.sandbox.root() / "browser.in";
    const std::string output = stage.sandbox.root() / "browser.out";
    input_ = makePipe(input);
    TestSandbox::write(output, "");
    lines_ = std::make_unique<LineReader>(output);
    process_ = stage.run({"minimal-browser"}, output, "/dev/null", input);
    lines_->await("ready");
}

double MinimalBrowser::time(const std::string& command, const std::string& text) {
    const double start = now();
    const std::string line = command + "\n";
    expect(write(input_.get(), line.data(), line.size()) > 0, "the browser takes no command");
    lines_->await(text);
    return now() - start;
}

}  // namespace quorl::bench
