#include "AgentStage.h"

#include <sstream>

namespace quorl::test {
namespace {

constexpr const char* serviceName = "com.tav.quorl.QUORLLoginAgent";
// Logged for every page but the blank one, which each answer leaves behind.
constexpr const char* pageCompleted = "handleFileInjection started for OnDocumentComplete";

}  // namespace

AgentStage::AgentStage() {
    const std::string tls = (sandbox.root() / "tls").string();
    outputOf({tool("make-test-certificates"), tls});
    // The folder that stands in place of the system's trust for the agent alone.
    namespace fs = std::filesystem;
    fs::copy(tls + "/certs", sandbox.root() / "trust",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    fs::copy(tls + "/ca-certificates.crt", sandbox.root() / "trust");
}

std::string AgentStage::tool(const std::string& name) {
    return QUORL_BINARY_DIR "/bin/" + name;
}

void AgentStage::startDisplay(const std::string& size) {
    const std::string file = (sandbox.root() / "display").string();
    screen_ = std::make_unique<Subprocess>(Subprocess::Options{
        .command = {"Xvfb", "-displayfd", "1", "-screen", "0", size + "x24", "-nolisten", "tcp"},
        .output = file});
    ASSERT_TRUE(waitFor([&] { return TestSandbox::read(file).ends_with("\n"); })) << "no X server";
    display_ = ":" + TestSandbox::read(file);
    display_.pop_back();
}

void AgentStage::startServer(const Words& arguments, const std::string& certificate) {
    const std::string tls = (sandbox.root() / "tls").string();
    const std::string out = (sandbox.root() / "server.out").string();
    std::filesystem::remove(out);
    Words command = {tool("selfservice-server"),
                     "--cert",
                     tls + "/" + certificate + ".pem",
                     "--key",
                     tls + "/" + certificate + ".key",
                     "--state",
                     (sandbox.root() / "requests.json").string()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    server_ = std::make_unique<Subprocess>(Subprocess::Options{
        .command = command, .output = out, .errors = (sandbox.root() / "server.err").string()});
    ASSERT_TRUE(waitFor([&] { return TestSandbox::read(out).ends_with("\n"); })) << "no server";
    port_ = TestSandbox::read(out).substr(std::string("ready ").size());
    port_.pop_back();
}

std::vector<Value> AgentStage::serverRequests() const {
    std::istringstream lines(TestSandbox::read(sandbox.root() / "requests.json"));
    std::vector<Value> requests;
    for (std::string line; std::getline(lines, line);)
        requests.push_back(Value::parse(line, nullptr, false));
    return requests;
}

void AgentStage::configure(const Settings& settings) {
    Value config = {{"SERVERNAME", "localhost"},
                    {"PORTNUMBER", port_},
                    {"LOCALE_ID", "en"},
                    {"PRODTITLE", "Second Factor"},
                    {"VERSION", "1.0"}};
    for (const auto& [key, value] : settings)
        config[key] = value;
    const std::string json = (sandbox.root() / "config.json").string();
    TestSandbox::write(json, config.dump());
    outputOf({"python3", "-c",
              "import json,plistlib,sys; plistlib.dump(json.load(open(sys.argv[1])), "
              "open(sys.argv[2],'wb'))",
              json, (sandbox.support() / "config.plist").string()});
}

Value AgentStage::configuration() const {
    return Value::parse(
        outputOf({"python3", "-c",
                  "import json,plistlib,sys; print(json.dumps(plistlib.load(open(sys.argv[1],"
                  "'rb'))))",
                  (sandbox.support() / "config.plist").string()}),
        nullptr, false);
}

std::string AgentStage::encryptedKey(const std::string& text) {
    return outputOf({"sh", "-c",
                     "printf %s \"$1\" | openssl enc -aes-256-cbc -a -A -nosalt "
                     "-K 6d61e11afe1eb951a8969a7aa524a71fe2f9218be0df0944b45c696c2b908bbd "
                     "-iv 5c1e0a7f3b92d4e6a18c07f2b4d96e31",
                     "sh", text});
}

std::unique_ptr<Subprocess> AgentStage::run(const Words& command, const std::string& output,
                                            const std::string& errors, const std::string& input) {
    Words words = {"unshare"};
    if (geteuid() != 0)
        words.emplace_back("-r");
    for (const std::string& word :
         {std::string("-m"), std::string("--"), std::string("sh"), std::string("-c"),
          std::string("mount --bind \"$1\" /etc/ssl/certs && shift && exec \"$@\""),
          std::string("sh"), (sandbox.root() / "trust").string(), tool(command.front())})
        words.push_back(word);
    words.insert(words.end(), command.begin() + 1, command.end());
    std::map<std::string, std::string> environment = {
        {"QUORL_SUPPORT_BASE", (sandbox.root() / "base").string()},
        {"QUORL_RUNTIME_DIR", (sandbox.root() / "run").string()},
        {"DISPLAY", display_},
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

std::size_t AgentStage::logged(const std::string& message) const {
    const std::string text = log();
    std::size_t found = 0;
    for (auto at = text.find(message); at != std::string::npos; at = text.find(message, at + 1))
        ++found;
    return found;
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
    client_ = std::make_unique<Subprocess>(
        Subprocess::Options{.command = {tool("kesh-request"), "--json", "--timeout", "300",
                                        "--runtime-dir", (sandbox.root() / "run").string()},
                            .output = input + ".answer",
                            .input = input});
}

Value AgentStage::answer(std::chrono::seconds deadline) {
    if (!client_->wait(deadline))
        return nullptr;
    const std::string file = (sandbox.root() / ("request" + std::to_string(requests_))).string();
    Value answer = Value::parse(TestSandbox::read(file + ".answer"), nullptr, false);
    return answer.is_discarded() ? Value() : answer;
}

void AgentStage::xdotool(Words arguments) {
    arguments.insert(arguments.begin(), "xdotool");
    Subprocess(Subprocess::Options{.command = arguments, .environment = {{"DISPLAY", display_}}})
        .wait();
}

void AgentStage::clickClose() {
    // The middle of the strip's last button on the 1280x800 screen.
    xdotool({"mousemove", "1070", "134", "click", "1"});
}

std::string AgentStage::code(const std::string& secret, const std::string& algorithm) {
    std::string code = outputOf({"oathtool", "--totp=" + algorithm, "--base32", secret});
    while (!code.empty() && code.back() == '\n')
        code.pop_back();
    return code;
}

}  // namespace quorl::test
