// Request received to page ready to type, and Return on the right code to the answer, beside a
// minimal program that shows the same file.
#include "Groups.h"
#include "Programs.h"

namespace quorl::bench {
namespace {

using test::AgentStage;

constexpr const char* secret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
constexpr int runs = 7;
constexpr int laterPages = 5;  // of each run

void enroll(AgentStage& stage) {
    stage.startServer({"--token", "t=alice@EXAMPLE"});
    stage.configure({{"OFFLINE_MFA", "true"},
                     {"INSTALLATION_KEY", AgentStage::encryptedKey("demo-installation-key")}});
    stage.run({"QUORLLoginAgent", "-action", "updateAgentStatus", "-status", "install"})->wait();
    stage.run({"offline-sync", "sync", "t"})->wait();
    stage.stopServer();
}

// The page is filled by scripts that run in order, so it takes keys once the last has been handed
// over: right after this line of the log.
constexpr const char* filled =
    "MFAController:: didFinishNavigation : loading offline related content";

double untilReady(AgentStage& stage, ChannelClient& client) {
    LogReader log(stage);
    const double start = milliseconds();
    client.send({{"OFFLINE_MFA", true}, {"USER_NAME", "alice"}, {"DOMAIN_NAME", "EXAMPLE"}});
    log.await(filled);
    return milliseconds() - start;
}

// From the key press, the start of the program that presses it included.
double untilAnswer(AgentStage& stage, ChannelClient& client) {
    stage.type(AgentStage::code(secret));
    const double start = milliseconds();
    stage.press("Return");
    const Value answer = client.answer();
    return stringValue(answer, "MFA_AUTH_RESULT") == "SUCCESS" ? milliseconds() - start : -1;
}

double untilFinished(MinimalBrowser& browser, const std::string& url) {
    const double start = milliseconds();
    browser.say(url);
    browser.await("finished " + url);
    return milliseconds() - start;
}

}  // namespace

void benchOffline(Figures& figures) {
    AgentStage stage;
    enroll(stage);
    stage.startDisplay();
    const std::string file =
        "file://" QUORL_BINARY_DIR "/resources/resources/offlineMFA/OfflineMFA.htm";

    std::vector<double> first, second, answer, firstFloor, secondFloor;
    for (int i = 0; i < runs; ++i) {
        stage.startAgent();
        ChannelClient client(stage);
        first.push_back(untilReady(stage, client));
        answer.push_back(untilAnswer(stage, client));
        for (int page = 0; page < laterPages; ++page) {
            settle();
            second.push_back(untilReady(stage, client));
            answer.push_back(untilAnswer(stage, client));
        }
        stage.agent().stop(SIGTERM);

        MinimalBrowser browser(stage);
        firstFloor.push_back(untilFinished(browser, file));
        for (int page = 0; page < laterPages; ++page) {
            browser.hide();
            settle();
            secondFloor.push_back(untilFinished(browser, file));
        }
    }
    figures.add("agent.offline.page.first", median(first), median(firstFloor), "ms");
    figures.add("agent.offline.page.second", median(second), median(secondFloor), "ms");
    if (percentile(answer, 0) < 0)
        std::fprintf(stderr, "offline: a right code was not answered with SUCCESS\n");
    figures.add("agent.offline.answer", median(answer), "ms");
}

}  // namespace quorl::bench
