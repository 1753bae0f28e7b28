// Start, first and later pages of the server and of the offline factor, and what the agent uses at
// rest, beside a minimal resident program that shows the same page over the same connection.
#include "Figures.h"
#include "Programs.h"

namespace quorl::bench {
namespace {

namespace fs = std::filesystem;
using test::AgentStage;

// The number behind a field of a file of /proc, 0 where there is none.
double field(const fs::path& path, const std::string& name) {
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(name))
            return std::stod(line.substr(name.size()));
    }
    return 0;
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
    void hide() {}
    pid_t pid() const { return stage_.agent().pid(); }

  private:
    AgentStage& stage_;
};

struct Measured {
    Samples ready, first, later, memoryAtRest, memoryWithPage;
};

// Whether the first page is asked for at once, or as of whoever starts a machine, who has a greeter
// to fill in first.
enum class First { atOnce, atRest };

// One start and its pages; `page` gives how long one took.
template <class Program, class Page>
void show(AgentStage& stage, Measured& measured, Side side, First when, Page page) {
    const double start = now();
    Program program(stage);
    (measured.ready.*side).push_back(now() - start);
    if (when == First::atRest) {
        program.prepare();
        settle();
        (measured.memoryAtRest.*side).push_back(memory(program.pid()));
    }
    (measured.first.*side).push_back(page(program));
    (measured.memoryWithPage.*side).push_back(memory(program.pid()));
    for (int i = 0; i < 5; ++i) {
        program.hide();
        settle();
        (measured.later.*side).push_back(page(program));
    }
}

template <class Ours, class Floor>
Measured showPages(AgentStage& stage, First when, Ours ours, Floor floor) {
    Measured measured;
    for (int run = 0; run <= 7; ++run) {
        if (run == 1)
            measured = {};
        show<Agent>(stage, measured, &Samples::ours, when, ours);
        show<MinimalBrowser>(stage, measured, &Samples::floor, when, floor);
    }
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

}  // namespace

void benchLaunch() {
    AgentStage stage;
    serveThePage(stage);
    stage.startDisplay();
    stage.configure();
    const auto ours = [](Agent&) {
        const double asked = now();
        ask({{"MFA_REQUEST_URL", "/painted"}});
        return now() - asked;
    };
    const auto floor = [&](MinimalBrowser& browser) {
        return browser.time("https://localhost:" + stage.port() + "/painted", "painted");
    };
    const Measured measured = showPages(stage, First::atRest, ours, floor);
    print("agent.launch.ready", measured.ready, ms);
    print("agent.launch.page.first", measured.first, ms);
    print("agent.launch.page.second", measured.later, ms);
    print("agent.launch.page.first.to.second",
          percentile(measured.first.ours) / percentile(measured.later.ours), {"x"});
    print("agent.launch.memory.rest", measured.memoryAtRest, MiB);
    print("agent.launch.memory.page", measured.memoryWithPage, MiB);
    measureRest(stage);
}

void benchOffline() {
    AgentStage stage;
    enroll(stage, "alice@EXAMPLE");
    stage.startDisplay();
    std::vector<double> answers;
    // To the page that is ready to type in.
    const auto ours = [&](Agent&) {
        const double start = now();
        const OfflinePage page = passOffline(stage, [] { return askOffline("alice"); });
        answers.push_back(page.verdict);
        return page.ready - start;
    };
    const auto floor = [](MinimalBrowser& browser) {
        const std::string file =
            "file://" QUORL_BINARY_DIR "/resources/resources/offlineMFA/OfflineMFA.htm";
        return browser.time(file, "finished " + file);
    };
    const Measured measured = showPages(stage, First::atOnce, ours, floor);
    print("agent.offline.page.first", measured.first, ms);
    print("agent.offline.page.second", measured.later, ms);
    print("agent.offline.answer", percentile(answers), ms);
}

}  // namespace quorl::bench
