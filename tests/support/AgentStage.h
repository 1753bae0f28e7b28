#pragma once

#include "TestServer.h"
#include "Value.h"
#include "XvfbDisplay.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorl::test {

/// The whole product on a stage of its own: a screen, the self-service server with a certificate
/// authority, the agent as it is installed, and clients of its channel.
class AgentStage {
  public:
    using Words = std::vector<std::string>;
    using Settings = std::vector<std::pair<std::string, std::string>>;

    AgentStage();

    /// A screen without a window manager, for clients with the authority in its file alone.
    void startDisplay();
    const std::string& display() const { return display_; }
    const std::string& port() const { return port_; }
    /// The server; what is configured from now on names it.
    void startServer(const Words& switches = {}) {
        server_.emplace("server", switches);
        port_ = std::to_string(server_->port());
    }
    void stopServer() { server_.reset(); }
    /// The requests the server received so far, as it recorded them.
    std::vector<Value> serverRequests() const { return server_->requests(); }

    /// Writes the configuration: the stage's server and these settings over it.
    void configure(const Settings& settings = {});

    /// Runs a program of the build with the stage's folders, trusting the stage's authority.
    std::unique_ptr<Subprocess> run(const Words& command, const std::string& output = "/dev/null",
                                    const std::string& errors = "/dev/null",
                                    const std::string& input = "/dev/null");
    /// The words that make the agent and its clients another account's; ours when empty.
    Words account;
    /// Words before these that the agent is started with.
    Words agentPrefix;
    void startAgent();
    Subprocess& agent() { return *agent_; }
    std::string log() const;
    std::size_t logged(const std::string& message) const { return occurrences(log(), message); }
    bool waitForLog(const std::string& message, std::size_t times = 1,
                    std::chrono::milliseconds deadline = std::chrono::seconds(20)) const;
    /// Waits until one page more than before has loaded.
    bool waitForPage();

    /// Sends a request; its answer comes from answer().
    void request(const Value& dictionary);
    /// The answer to the request sent last: a dictionary, or null when none came.
    Value answer(std::chrono::seconds deadline = std::chrono::seconds(20));

    void type(const std::string& text) { xdotool({"type", "--delay", "12", "--", text}); }
    void press(const std::string& key) { xdotool({"key", key}); }
    /// Keys one after the other ("Tab Tab Return"), at a person's pace: where a key leads out of
    /// the page, the next one is for what has the focus then.
    void pressInTurn(const std::string& keys);
    /// Holds the text for whoever pastes, until the next one or the end of the stage.
    void copy(const std::string& text);
    /// Whether the colour (red, green, blue) is somewhere on that part of the screen.
    bool shows(const std::string& colour, const std::string& part = "1280x800+0+0");
    /// Clicks the window's own close button.
    void clickClose();
    void xdotool(Words arguments);
    /// Where the text lies in the memory of the agent and of the processes below it: a line each
    /// with name and count.
    std::string copiesInMemory(const std::string& text);
    /// The present code of a base32 secret, by an independent program.
    static std::string code(const std::string& secret, const std::string& algorithm = "sha1");

    TestSandbox sandbox;

  private:
    static std::string tool(const std::string& name);
    /// A client of the screen; what it prints goes into the file.
    std::unique_ptr<Subprocess> displayClient(const Words& command,
                                              const std::string& output = "/dev/null");

    std::string port_;
    std::string display_;
    std::size_t pages_ = 0;
    int requests_ = 0;
    std::optional<XvfbDisplay> screen_;
    std::optional<TestServer> server_;
    std::unique_ptr<Subprocess> agent_;
    std::unique_ptr<Subprocess> client_;
    std::unique_ptr<Subprocess> clipboard_;
};

}  // namespace quorl::test
