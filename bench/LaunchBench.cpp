// Start, first and second page, and what the agent uses at rest, beside a minimal resident program
// that has shown a blank page and shows the same page over the same connection.
#include "Groups.h"
#include "Programs.h"

#include <unistd.h>

#include <fstream>

namespace quorl::bench {
namespace {

namespace fs = std::filesystem;
using test::AgentStage;

constexpr int runs = 7;
constexpr auto restSeconds = 5;
constexpr int laterPages = 5;  // of each run

// The number behind a field of a status file of /proc.
double field(const fs::path& path, const std::string& name) {
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(name))
            return std::stod(line.substr(name.size()));
    }
    return 0;
}

// A process and all below it: a page is drawn by processes of its own.
std::vector<fs::path> family(pid_t pid) {
    std::vector<fs::path> all = {"/proc/" + std::to_string(pid)};
    std::error_code error;
    for (const auto& task : fs::directory_iterator(all.front() / "task", error)) {
        std::ifstream children(task.path() / "children");
        for (pid_t child = 0; children >> child;)
            for (const fs::path& member : family(child))
                all.push_back(member);
    }
    return all;
}

// What is nobody else's: anonymous and shared memory.
double memory(pid_t pid) {
    double kibibytes = 0;
    for (const fs::path& process : family(pid))
        kibibytes += field(process / "status", "RssAnon:") + field(process / "status", "RssShmem:");
    return kibibytes / 1024;
}

struct Use {
    double wakeups = 0;  ///< voluntary context switches of the process's threads so far
    double cpu = 0;      ///< processor time of its threads so far, in nanoseconds
};
Use useOf(pid_t pid) {
    Use use;
    for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        use.wakeups += field(task.path() / "status", "voluntary_ctxt_switches:");
        double nanoseconds = 0;
        std::ifstream(task.path() / "schedstat") >> nanoseconds;
        use.cpu += nanoseconds;
    }
    return use;
}

struct Launch {
    Samples ready, first, second, memoryAtRest, memoryWithPage;
};
using Side = std::vector<double> Samples::*;

// One start and its pages; `page` gives how long one took, `again` comes before each later one.
template <class Page, class Again>
void measurePages(Launch& launch, Side side, pid_t pid, Page page, Again again) {
    // Nobody asks at once: whoever starts a machine has a greeter to fill in first.
    settle();
    (launch.memoryAtRest.*side).push_back(memory(pid));
    (launch.first.*side).push_back(page());
    (launch.memoryWithPage.*side).push_back(memory(pid));
    for (int i = 0; i < laterPages; ++i) {
        again();
        settle();
        (launch.second.*side).push_back(page());
    }
}

void measureAgent(AgentStage& stage, Launch& launch) {
    const double start = now();
    stage.startAgent();
    launch.ready.ours.push_back(now() - start);
    const auto page = [] {
        const double asked = now();
        ask({{"MFA_REQUEST_URL", "/painted"}});
        return now() - asked;
    };
    measurePages(launch, &Samples::ours, stage.agent().pid(), page, [] {});
    stage.agent().stop(SIGTERM);
}

void measureBrowser(AgentStage& stage, Launch& launch) {
    const std::string url = "https://localhost:" + stage.port() + "/painted";
    const double start = now();
    MinimalBrowser browser(stage);
    launch.ready.floor.push_back(now() - start);
    browser.time("about:blank", "finished about:blank");
    browser.hide();
    const auto page = [&] { return browser.time(url, "painted"); };
    measurePages(launch, &Samples::floor, browser.pid(), page, [&] { browser.hide(); });
}

void measureRest(AgentStage& stage, Figures& figures) {
    stage.startAgent();
    sleep(1);
    const Use before = useOf(stage.agent().pid());
    sleep(restSeconds);
    const Use after = useOf(stage.agent().pid());
    const auto processes = static_cast<double>(family(stage.agent().pid()).size());
    figures.add("agent.rest.processes", processes, {"processes"});
    figures.add("agent.rest.wakeups", (after.wakeups - before.wakeups) / restSeconds, {"/s"});
    figures.add("agent.rest.cpu", (after.cpu - before.cpu) / restSeconds, {"ms/s", ms.size});
    stage.agent().stop(SIGTERM);
}

}  // namespace

void benchLaunch(Figures& figures) {
    AgentStage stage;
    serveThePage(stage);
    stage.startDisplay();
    stage.configure();

    Launch launch;
    for (int i = 0; i <= runs; ++i) {
        if (i == 1)
            launch = {};
        measureAgent(stage, launch);
        measureBrowser(stage, launch);
    }
    figures.add("agent.launch.ready", launch.ready, ms);
    figures.add("agent.launch.page.first", launch.first, ms);
    figures.add("agent.launch.page.second", launch.second, ms);
    figures.add("agent.launch.page.first.to.second",
                percentile(launch.first.ours) / percentile(launch.second.ours), {"x"});
    figures.add("agent.launch.memory.rest", launch.memoryAtRest, MiB);
    figures.add("agent.launch.memory.page", launch.memoryWithPage, MiB);
    measureRest(stage, figures);
}

}  // namespace quorl::bench
