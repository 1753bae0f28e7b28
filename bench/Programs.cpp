#include "Programs.h"

#include "AgentClient.h"
#include "CryptoUtils.h"
#include "Figures.h"
#include "Logger.h"
#include "OfflineDataHandler.h"
#include "SampleData.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorl::bench {
namespace {

using namespace std::chrono_literals;

constexpr const char* paintedPage =
    "<!doctype html><title>Page</title><body style='font:20px sans-serif'><h1>A page</h1>"
    "<form><input autofocus><button>OK</button></form><script>"
    "requestAnimationFrame(() => requestAnimationFrame(() => "
    "window.webkit.messageHandlers.MACLoginAgent.postMessage('{\"SYSTEM_MFA_RESULT\":"
    "\"SUCCESS\"}')))</script>";

const Bytes accessKeyBytes(32, 0x5A);

// Appends what there is to read; a file at its end gives nothing.
void readMore(int descriptor, std::string& text) {
    char buffer[4096];
    const ssize_t size = read(descriptor, buffer, sizeof buffer);
    text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
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

std::string accessKey() {
    return convertDataBytesToHex(accessKeyBytes);
}

void serveThePage(test::AgentStage& stage) {
    const std::string page = stage.sandbox.root() / "painted.html";
    test::TestSandbox::write(page, paintedPage);
    stage.startServer({"--access-key", accessKey(), "--only", "/painted", "--reply-file", page,
                       "--reply-type", "text/html"});
}

void enroll(test::AgentStage& stage, const std::string& user) {
    using test::AgentStage;
    initLog(stage.sandbox.support() / "VantorixClient.log");
    stage.configure({{"LOGIN_MFA", "true"},
                     {"OFFLINE_MFA", "true"},
                     {"PREAUTH_CHECK_REQUIRED", "true"},
                     {"AGENT_ID", "1001"},
                     {"ACCESS_KEY", AgentStage::encryptedKey(accessKey())}});
    const Value phone =
        sampleAuthenticator("Phone", encryptText(userSecret, accessKeyBytes, iv).value());
    const auto stored = OfflineDataHandler::replaceRecord(
        user, sampleRecord({{"3", phone}}, 10'000), systemClock());
    expect(stored == OfflineDataHandler::Replaced::done, "the user cannot be enrolled");
}

double untilEnded(test::AgentStage& stage, std::future<double> ended) {
    const double start = now();
    stage.press("Return");
    return ended.get() - start;
}

FileDescriptor makePipe(const std::string& path) {
    unlink(path.c_str());
    mkfifo(path.c_str(), 0600);
    return FileDescriptor(open(path.c_str(), O_RDWR | O_CLOEXEC));
}

LineReader::LineReader(const std::string& path)
    : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC)), changes_(inotify_init1(IN_CLOEXEC)) {
    lseek(file_.get(), 0, SEEK_END);
    inotify_add_watch(changes_.get(), path.c_str(), IN_MODIFY);
}

void LineReader::await(const std::string& text) {
    const double end = now() + 20 * s.size;
    while (now() < end) {
        readMore(file_.get(), unread_);
        for (auto line = unread_.find('\n'); line != std::string::npos; line = unread_.find('\n')) {
            const bool wanted = unread_.substr(0, line).find(text) != std::string::npos;
            unread_.erase(0, line + 1);
            if (wanted)
                return;
        }
        pollfd entry{.fd = changes_.get(), .events = POLLIN, .revents = 0};
        std::string notices;
        if (poll(&entry, 1, 100) > 0)
            readMore(changes_.get(), notices);
    }
    expect(false, text.c_str());
}

MinimalBrowser::MinimalBrowser(test::AgentStage& stage)
    : output_(stage.sandbox.root() / "browser.out"),
      input_(makePipe(stage.sandbox.root() / "browser.in")) {
    test::TestSandbox::write(output_, "");
    lines_ = std::make_unique<LineReader>(output_);
    process_ =
        stage.run({"minimal-browser"}, output_, "/dev/null", stage.sandbox.root() / "browser.in");
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
