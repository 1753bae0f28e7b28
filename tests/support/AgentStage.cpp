#include "AgentStage.h"

#include "PropertyList.h"

#include <sstream>

namespace quorl::test {
namespace {

constexpr const char* serviceName = "com.tav.quorl.QUORLLoginAgent";
// Logged for every page but the blank one, which each answer leaves behind.
constexpr const char* pageCompleted = "handleFileInjection started for OnDocumentComplete";

}  // namespace

AgentStage::AgentStage() {
    // The folder that stands in place of the system's trust for the agent alone.
    namespace fs = std::filesystem;
    fs::copy(certificateFolder() + "/certs", sandbox.root() / "trust",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::copy(certificateFolder() + "/ca-certificates.crt", sandbox.root() / "trust");
}

std::string AgentStage::tool(const std::string& name) {
    return QUORL_BINARY_DIR "/bin/" + name;
}

void AgentStage::startDisplay() {
    // One entry for any display: family, address, number, method and cookie.
    const std::string authority = (sandbox.root() / "authority").string();
    TestSandbox::write(authority, std::string("\xff\xff\0\0\0\0\0\x12", 8) + "MIT-MAGIC-COOKIE-1" +
                                      std::string("\0\x10", 2) + "a cookie of ours");
    screen_.emplace("1280x800", Words{"-auth", authority});
    display_ = XvfbDisplay::name();
}

void AgentStage::configure(const Settings& settings) {
    Value config = {{"SERVERNAME", "localhost"},
                    {"PORTNUMBER", port_},
                    {"LOCALE_ID", "en"},
                    {"PRODTITLE", "Second Factor"},
                    {"VERSION", "1.0"}};
    for (const auto& [key, value] : settings)
        config[key] = value;
    ASSERT_TRUE(writePropertyListFile(sandbox.support() / "config.plist", config));
}

std::unique_ptr<Subprocess> AgentStage::run(const Words& command, const std::string& output,
                                            const std::string& errors, const std::string& input) {
    Words words = {"unshare"};
    if (geteuid() != 0)
        words.emplace_back("-r");
    words.insert(words.end(), {"-m", "--", "sh", "-c",
                               "mount --bind \"$1\" /etc/ssl/certs && shift && exec \"$@\"", "sh",
                               (sandbox.root() / "trust").string()});
    if (command.front() == "QUORLLoginAgent") {
        words.insert(words.end(), agentPrefix.begin(), agentPrefix.end());
        words.insert(words.end(), account.begin(), account.end());
    }
    words.push_back(tool(command.front()));
    words.insert(words.end(), command.begin() + 1, command.end());
    std::map<std::string, std::string> environment = {
        {"QUORL_SUPPORT_BASE", (sandbox.root() / "base").string()},
        {"QUORL_RUNTIME_DIR", (sandbox.root() / "run").string()},
        {"QUORL_SERVE_OWN_ACCOUNT", "1"},
        {"DISPLAY", display_},
        {"XAUTHORITY", (sandbox.root() / "authority").string()},
        {"WAYLAND_DISPLAY", ""},
        {"GDK_BACKEND", "x11"}};
    return std::make_unique<Subprocess>(Subprocess::Options{.command = words,
                                                            .environment = environment,
                                                            .output = output,
                                                            .errors = errors,
                                                            .input = input});
}

void AgentStage::startAgent() {
    pages_ = logged(pageCompleted);
    const std::size_t before = logged("AgentMessagingService : Server running...");
    agent_ = run({"QUORLLoginAgent"}, "/dev/null", (sandbox.root() / "agent.err").string());
    ASSERT_TRUE(waitForLog("AgentMessagingService : Server running...", before + 1))
        << TestSandbox::read(sandbox.root() / "agent.err");
    ASSERT_TRUE(std::filesystem::is_socket(sandbox.root() / "run" / serviceName));
}

std::string AgentStage::log() const {
    return TestSandbox::read(sandbox.support() / "VantorixClient.log");
}

bool AgentStage::waitForLog(const std::string& message, std::size_t times,
                            std::chrono::milliseconds deadline) const {
    return waitFor([&] { return logged(message) >= times; }, deadline);
}

bool AgentStage::waitForPage() {
    const bool shown = waitForLog(pageCompleted, pages_ + 1);
    pages_ = logged(pageCompleted);
    return shown;
}

void AgentStage::request(const Value& dictionary) {
    pages_ = logged(pageCompleted);
    ++requests_;
    const std::string input = (sandbox.root() / ("request" + std::to_string(requests_))).string();
    TestSandbox::write(input, dictionary.dump());
    Words command = account;
    command.insert(command.end(), {tool("kesh-request"), "--json", "--timeout", "300",
                                   "--runtime-dir", (sandbox.root() / "run").string()});
    client_ = std::make_unique<Subprocess>(
        Subprocess::Options{.command = command, .output = input + ".answer", .input = input});
}

Value AgentStage::answer(std::chrono::seconds deadline) {
    if (!client_->wait(deadline))
        return nullptr;
    const std::string file = (sandbox.root() / ("request" + std::to_string(requests_))).string();
    Value answer = Value::parse(TestSandbox::read(file + ".answer"), nullptr, false);
    return answer.is_discarded() ? Value() : answer;
}

std::unique_ptr<Subprocess> AgentStage::displayClient(const Words& command,
                                                      const std::string& output) {
    return std::make_unique<Subprocess>(Subprocess::Options{
        .command = command,
        .environment = {{"DISPLAY", display_},
                        {"XAUTHORITY", (sandbox.root() / "authority").string()}},
        .output = output});
}

void AgentStage::xdotool(Words arguments) {
    arguments.insert(arguments.begin(), "xdotool");
    displayClient(arguments)->wait();
}

void AgentStage::pressInTurn(const std::string& keys) {
    Words command = {"key", "--delay", "200"};
    std::istringstream words(keys);
    for (std::string key; words >> key;)
        command.push_back(key);
    xdotool(command);
}

void AgentStage::copy(const std::string& text) {
    const std::string file = (sandbox.root() / "copied").string();
    TestSandbox::write(file, text);
    clipboard_ = displayClient({"xclip", "-quiet", "-selection", "clipboard", file});
    const auto held = [&] {
        const std::string out = file + ".held";
        std::filesystem::remove(out);
        displayClient({"xclip", "-o", "-selection", "clipboard"}, out)->wait();
        return TestSandbox::read(out) == text;
    };
    EXPECT_TRUE(waitFor(held)) << "nobody holds the text";
}

bool AgentStage::shows(const std::string& colour, const std::string& part) {
    const std::string file = (sandbox.root() / "pixels").string();
    std::filesystem::remove(file);
    displayClient(
        {"import", "-silent", "-window", "root", "-crop", part, "-depth", "8", "rgb:" + file})
        ->wait();
    const std::string pixels = TestSandbox::read(file);
    EXPECT_FALSE(pixels.empty()) << "no picture of the screen";
    for (std::size_t at = 0; at < pixels.size(); at += 3)
        if (pixels.compare(at, 3, colour) == 0)
            return true;
    return false;
}

void AgentStage::clickClose() {
    const std::string closed = "customBrowserWillClose : Received";
    const std::size_t before = logged(closed);
    // As a person does: comes from elsewhere, and presses again where a window had not quite come.
    for (int tries = 0; tries < 5 && logged(closed) == before; ++tries) {
        xdotool({"mousemove", "640", "700"});
        // The middle of the strip's last button on the 1280x800 screen.
        xdotool({"mousemove", "1070", "134", "click", "1"});
        waitForLog(closed, before + 1, std::chrono::seconds(3));
    }
}

std::string AgentStage::copiesInMemory(const std::string& text) {
    const std::string word = (sandbox.root() / "word").string();
    const std::string found = (sandbox.root() / "found").string();
    TestSandbox::write(word, text);
    std::filesystem::remove(found);
    Subprocess search({.command = {"python3", QUORL_SOURCE_DIR "/tests/support/memory_search.py",
                                   std::to_string(agent_->pid())},
                       .output = found,
                       .errors = found,
                       .input = word});
    EXPECT_EQ(search.wait(std::chrono::seconds(60)), 0) << TestSandbox::read(found);
    return TestSandbox::read(found);
}

std::string AgentStage::code(const std::string& secret, const std::string& algorithm) {
    std::string code = outputOf({"oathtool", "--totp=" + algorithm, "--base32", secret});
    while (!code.empty() && code.back() == '\n')
        code.pop_back();
    return code;
}

}  // namespace quorl::test
