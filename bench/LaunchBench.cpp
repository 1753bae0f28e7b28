// Start, first and second page, and what the agent uses at rest, beside a minimal resident program
// that shows the same page over the same connection.
#include "Groups.h"
#include "Programs.h"

#include <unistd.h>

namespace quorl::bench {
namespace {

using test::AgentStage;

// Tells, through the page's channel, that its second frame is on the screen.
constexpr const char* paintedPage =
    "<!doctype html><title>Page</title><body style='font:20px sans-serif'><h1>A page</h1>"
    "<form><input autofocus><button>OK</button></form><script>"
    "requestAnimationFrame(() => requestAnimationFrame(() => "
    "window.webkit.messageHandlers.MACLoginAgent.postMessage('{\"SYSTEM_MFA_RESULT\":"
    "\"SUCCESS\"}')))</script>";

constexpr int runs = 7;
constexpr auto restSeconds = 5;
constexpr int laterPages = 5;  // of each run

struct Samples {
    std::vector<double> ready, first, second, memoryAtRest, memoryWithPage;
};

double pageTime(ChannelClient& client) {
    const double start = milliseconds();
    client.send({{"MFA_REQUEST_URL", "/painted"}});
    client.answer();
    return milliseconds() - start;
}

double pageTime(MinimalBrowser& browser, const std::string& url) {
    const double start = milliseconds();
    browser.say(url);
    browser.await("painted");
    return milliseconds() - start;
}

void measureAgent(AgentStage& stage, Samples& samples) {
    const double start = milliseconds();
    stage.startAgent();
    samples.ready.push_back(milliseconds() - start);
    samples.memoryAtRest.push_back(usageOf(stage.agent().pid()).memoryMiB);
    ChannelClient client(stage);
    samples.first.push_back(pageTime(client));
    samples.memoryWithPage.push_back(usageOf(stage.agent().pid()).memoryMiB);
    for (int i = 0; i < laterPages; ++i) {
        settle();
        samples.second.push_back(pageTime(client));
    }
    stage.agent().stop(SIGTERM);
}

void measureBrowser(AgentStage& stage, Samples& samples) {
    const std::string url = "https://localhost:" + stage.port() + "/painted";
    const double start = milliseconds();
    MinimalBrowser browser(stage);
    samples.ready.push_back(milliseconds() - start);
    samples.memoryAtRest.push_back(usageOf(browser.pid()).memoryMiB);
    samples.first.push_back(pageTime(browser, url));
    samples.memoryWithPage.push_back(usageOf(browser.pid()).memoryMiB);
    for (int i = 0; i < laterPages; ++i) {
        browser.hide();
        settle();
        samples.second.push_back(pageTime(browser, url));
    }
}

void measureRest(AgentStage& stage, Figures& figures) {
    stage.startAgent();
    sleep(1);
    const Usage before = usageOf(stage.agent().pid());
    sleep(restSeconds);
    const Usage after = usageOf(stage.agent().pid());
    figures.add("agent.rest.processes", after.processes, "processes");
    figures.add("agent.rest.wakeups", (after.wakeups - before.wakeups) / restSeconds, "/s");
    figures.add("agent.rest.cpu", (after.cpuMs - before.cpuMs) / restSeconds, "ms/s");
    stage.agent().stop(SIGTERM);
}

}  // namespace

void benchLaunch(Figures& figures) {
    AgentStage stage;
    const std::string page = (stage.sandbox.root() / "painted.html").string();
    test::TestSandbox::write(page, paintedPage);
    stage.startServer({"--only", "/painted", "--reply-file", page, "--reply-type", "text/html"});
    stage.startDisplay();
    stage.configure();

    Samples agent;
    Samples browser;
    for (int i = 0; i <= runs; ++i) {
        Samples warmUp;
        measureAgent(stage, i == 0 ? warmUp : agent);
        measureBrowser(stage, i == 0 ? warmUp : browser);
    }
    const auto add = [&](const char* name, const std::vector<double>& ours,
                         const std::vector<double>& floor, const char* unit) {
        figures.add(name, median(ours), median(floor), unit);
    };
    add("agent.launch.ready", agent.ready, browser.ready, "ms");
    add("agent.launch.page.first", agent.first, browser.first, "ms");
    add("agent.launch.page.second", agent.second, browser.second, "ms");
    add("agent.launch.memory.rest", agent.memoryAtRest, browser.memoryAtRest, "MiB");
    add("agent.launch.memory.page", agent.memoryWithPage, browser.memoryWithPage, "MiB");
    measureRest(stage, figures);
}

}  // namespace quorl::bench
