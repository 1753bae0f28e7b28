// Request received to page ready to type, and Return on the right code to the answer, beside a
// minimal program that shows the same file.
#include "Groups.h"
#include "Programs.h"

namespace quorl::bench {
namespace {

using test::AgentStage;

constexpr int runs = 7;
constexpr int laterPages = 5;  // of each run

// Asks for a page, verifies, and gives how long the page took to be ready; the answer's time goes
// into the list.
double page(AgentStage& stage, std::vector<double>& answers) {
    LineReader log(stage);
    const double start = now();
    auto answered = std::async(std::launch::async, [] {
        const Value answer =
            ask({{"OFFLINE_MFA", true}, {"USER_NAME", "alice"}, {"DOMAIN_NAME", "EXAMPLE"}});
        expect(stringValue(answer, "MFA_AUTH_RESULT") == "SUCCESS", "a right code was refused");
        return now();
    });
    log.await(offlinePageReady);
    const double ready = now() - start;
    stage.type(AgentStage::code(userSecret));
    answers.push_back(untilEnded(stage, std::move(answered)));
    return ready;
}

}  // namespace

void benchOffline(Figures& figures) {
    AgentStage stage;
    enroll(stage, "alice@EXAMPLE");
    stage.startDisplay();
    const std::string file =
        "file://" QUORL_BINARY_DIR "/resources/resources/offlineMFA/OfflineMFA.htm";

    Samples first, second;
    std::vector<double> answers;
    for (int run = 0; run < runs; ++run) {
        stage.startAgent();
        first.ours.push_back(page(stage, answers));
        for (int later = 0; later < laterPages; ++later) {
            settle();
            second.ours.push_back(page(stage, answers));
        }
        stage.agent().stop(SIGTERM);

        MinimalBrowser browser(stage);
        first.floor.push_back(browser.time(file, "finished " + file));
        for (int later = 0; later < laterPages; ++later) {
            browser.hide();
            settle();
            second.floor.push_back(browser.time(file, "finished " + file));
        }
    }
    figures.add("agent.offline.page.first", first, ms);
    figures.add("agent.offline.page.second", second, ms);
    figures.add("agent.offline.answer", percentile(answers), ms);
}

}  // namespace quorl::bench
