// Start, first and later pages of the server and of the offline factor, and what the agent uses at
// rest, beside a minimal resident program that shows the same page over the same connection.
#include "Scene.h"

namespace quorl::bench {
namespace {

namespace fs = std::filesystem;

// The number behind a field of a file of /proc, 0 where there is none.
double field(const fs::path& path, const std::string& name) {
    const std::string text = "\n" + TestSandbox::read(path);
    const auto at = text.find("\n" + name);
    return at == text.npos ? 0 : std::stod(text.substr(at + 1 + name.size()));
}

fs::path folderOf(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

// A process and all below it: a page is drawn by processes of its own.
std::vector<pid_t> family(pid_t pid) {
    std::vector<pid_t> all = {pid};
    std::error_code error;
    for (const auto& task : fs::directory_iterator(folderOf(pid) / "task", error)) {
        std::ifstream children(task.path() / "children");
        for (pid_t child = 0; children >> child;)
            for (const pid_t member : family(child))
                all.push_back(member);
    }
    return all;
}

// What is nobody else's, in MiB: anonymous and shared memory.
double memory(pid_t pid) {
    double kibibytes = 0;
    for (const pid_t member : family(pid))
        for (const char* kind : {"RssAnon:", "RssShmem:"})
            kibibytes += field(folderOf(member) / "status", kind);
    return kibibytes / 1024;
}

// The sum over the process's threads so far.
double ofThreads(pid_t pid, const char* file, const char* name) {
    double sum = 0;
    for (const auto& task : fs::directory_iterator(folderOf(pid) / "task"))
        sum += field(task.path() / file, name);
    return sum;
}

// The agent as a program that shows pages; each answer hides its page.
class Agent {
  public:
    explicit Agent(AgentStage& stage) : stage_(stage) { stage.startAgent(); }
    ~Agent() { stage_.agent().stop(SIGTERM); }
    Agent(const Agent&) = delete;
    Agent& operator=(const Agent&) = delete;
    void prepare() {}
    /// Nanoseconds to the answer of a page that gives it as soon as it is seen.
    double show() {
        const double asked = now();
        ask({{"MFA_REQUEST_URL", "/painted"}});
        return now() - asked;
    }
    /// The same page stays, until it is hidden.
    void leaveStanding() {
        standing_ = std::make_unique<AgentRequest>(send({{"MFA_REQUEST_URL", "/painted?stands"}}));
        expect(stage_.waitForPage(), "no page stands");
    }
    void hide() { standing_.reset(); }
    pid_t pid() const { return stage_.agent().pid(); }

  private:
    AgentStage& stage_;
    std::unique_ptr<AgentRequest> standing_;
};

// A resident program that shows pages and does nothing else.
class MinimalBrowser {
  public:
    explicit MinimalBrowser(AgentStage& stage)
        : page_("https://localhost:" + stage.port() + "/painted") {
        const std::string input = stage.sandbox.root() / "browser.in";
        const std::string output = stage.sandbox.root() / "browser.out";
        input_ = makePipe(input);
        TestSandbox::write(output, "");
        lines_ = std::make_unique<GrowingFile>(output);
        process_ = stage.run({"minimal-browser"}, output, "/dev/null", input);
        lines_->await("ready");
    }
    /// Nanoseconds from the command to the line that holds the text.
    double time(const std::string& command, const std::string& text) {
        const double start = now();
        const std::string line = command + "\n";
        expect(write(input_.get(), line.data(), line.size()) > 0, "the browser takes no command");
        lines_->await(text);
        return now() - start;
    }
    /// Has shown a blank page from now on.
    void prepare() { time("about:blank", "finished about:blank"), hide(); }
    double show() { return time(page_, "painted"); }
    void leaveStanding() { show(); }
    /// Hides the window, and waits until it is as blank as it was.
    void hide() { time("hide", "finished about:blank"); }
    pid_t pid() const { return process_->pid(); }

  private:
    std::string page_;
    FileDescriptor input_;
    std::unique_ptr<GrowingFile> lines_;
    std::unique_ptr<test::Subprocess> process_;
};

constexpr int runs = 7;

// A start, and the first page as of whoever starts a machine, who has a greeter to fill in first.
template <class Program>
Measured launch(AgentStage& stage) {
    const double start = now();
    Program program(stage);
    Measured measured = {{"ready", now() - start}};
    program.prepare();
    settle();
    measured.emplace("memory.rest", memory(program.pid()));
    measured.emplace("page.first", program.show());
    for (int i = 0; i < 5; ++i) {
        program.hide();
        settle();
        measured.emplace("page.second", program.show());
    }
    program.hide();
    settle();
    program.leaveStanding();
    settle();
    measured.emplace("memory.page", memory(program.pid()));
    return measured;
}

void measureRest(AgentStage& stage) {
    constexpr auto seconds = 5;
    const Agent agent(stage);
    const auto wakeups = [&] {
        return ofThreads(agent.pid(), "status", "voluntary_ctxt_switches:");
    };
    const auto cpu = [&] { return ofThreads(agent.pid(), "schedstat", ""); };
    sleep(1);
    const double wakeupsBefore = wakeups();
    const double cpuBefore = cpu();
    sleep(seconds);
    const auto processes = static_cast<double>(family(agent.pid()).size());
    print("agent.rest.processes", processes, {"processes"});
    print("agent.rest.wakeups", (wakeups() - wakeupsBefore) / seconds, {"/s"});
    print("agent.rest.cpu", (cpu() - cpuBefore) / seconds, {"ms/s", ms.size});
}

// The first page at once after the start, then more.
template <class Program, class Page>
Measured showPages(AgentStage& stage, Page page) {
    Program program(stage);
    Measured measured = page(program, "page.first");
    for (int i = 0; i < 5; ++i) {
        program.hide();
        settle();
        measured.merge(page(program, "page.second"));
    }
    return measured;
}

}  // namespace

void benchLaunch() {
    AgentStage stage;
    serveThePage(stage);
    stage.startDisplay();
    stage.configure();
    const auto measured = compareMeasured(
        runs, [&] { return launch<Agent>(stage); }, [&] { return launch<MinimalBrowser>(stage); });
    for (const auto& [name, samples] : measured)
        print("agent.launch." + name, samples, name.starts_with("memory") ? MiB : ms);
    print("agent.launch.page.first.to.second",
          percentile(measured.at("page.first").ours) / percentile(measured.at("page.second").ours),
          {"x"});
    measureRest(stage);
}

void benchOffline() {
    AgentStage stage;
    enroll(stage, "alice@EXAMPLE");
    stage.startDisplay();
    // To the page that is ready to type in.
    const auto ours = [&](Agent&, const char* name) {
        const double start = now();
        const OfflinePage page = passOffline(stage, [] { return askOffline("alice"); });
        return Measured{{name, page.ready - start}, {"answer", page.verdict}};
    };
    const auto floor = [](MinimalBrowser& browser, const char* name) {
        const std::string file =
            "file://" QUORL_BINARY_DIR "/resources/resources/offlineMFA/OfflineMFA.htm";
        return Measured{{name, browser.time(file, "finished " + file)}};
    };
    auto measured = compareMeasured(
        runs, [&] { return showPages<Agent>(stage, ours); },
        [&] { return showPages<MinimalBrowser>(stage, floor); });
    print("agent.offline.answer", percentile(measured.extract("answer").mapped().ours), ms);
    for (const auto& [name, samples] : measured)
        print("agent.offline." + name, samples, ms);
}

}  // namespace quorl::bench
