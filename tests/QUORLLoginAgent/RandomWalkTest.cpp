// Delegate, relay and offline flow together, driven by chance beside a small model of who may get
// which answer. Ports are queues in memory, so that every order of deliveries comes up.
#include "../KeshMacPAM/OfflineFlow.h"
#include "AgentChannel.h"
#include "AppDelegate.h"
#include "FakeApplication.h"
#include "FakePorts.h"
#include "KeyedArchive.h"

#include <deque>
#include <future>
#include <random>

namespace quorl::test {
namespace {

// A few seconds either way: the sanitizers are several times slower.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int usualSteps = 200'000;
#else
constexpr int usualSteps = 1'000'000;
#endif

/// What waits to be delivered, and for whose request it was sent.
struct Queue {
    std::deque<std::pair<PortMessage, int>> messages;
    Port::Handler handler;
    bool open = true;
};
using QueuePtr = std::shared_ptr<Queue>;

class QueueRight final : public SendRight {
  public:
    QueueRight(QueuePtr queue, const int& request) : queue_(std::move(queue)), request_(request) {}
    bool send(const PortMessage& message, std::chrono::milliseconds) override {
        if (queue_->open)
            queue_->messages.emplace_back(message, request_);
        return queue_->open;
    }
    std::unique_ptr<ReceiverWatch> watchReceiver(RunLoop&, std::function<void()>) override {
        return nullptr;
    }

  private:
    QueuePtr queue_;
    const int& request_;
};

class QueuePort final : public Port {
  public:
    QueuePort(QueuePtr queue, const int& request) : queue_(std::move(queue)), request_(request) {}
    ~QueuePort() override { QueuePort::invalidate(); }
    SendRightPtr sendRight() override { return std::make_shared<QueueRight>(queue_, request_); }
    void setHandler(Handler handler) override { queue_->handler = std::move(handler); }
    void addToRunLoop(RunLoop&) override {}
    void invalidate() override { queue_->open = false; }

  private:
    QueuePtr queue_;
    const int& request_;
};

/// The requester of one number: what it was answered, and whether it still waits.
struct Client {
    std::vector<PortMessage> answers;
    bool gone = false;
    std::function<void()> onGone;
};

class Walk : public OfflineFlow, public PortSystem, public FakeRunLoop {
  protected:
    // Ports: the application's is made first, then the relay's own, one for each request.
    std::unique_ptr<Port> makePort() override {
        auto queue = std::make_shared<Queue>();
        (appPort ? localPort : appPort) = queue;
        return std::make_unique<QueuePort>(queue, appRequest);
    }
    std::unique_ptr<Port> servicePortWithName(const std::string&) override {
        return std::make_unique<QueuePort>(servicePort, appRequest);
    }
    struct BorrowedLoop final : FakeRunLoop {
        explicit BorrowedLoop(Walk& walk) : walk(walk) {}
        void runFor(std::chrono::milliseconds duration) override { walk.runFor(duration); }
        Walk& walk;
    };
    std::unique_ptr<RunLoop> makeRunLoop() override {
        return std::make_unique<BorrowedLoop>(*this);
    }

    /// The relay's thread walks, while the main one waits: nothing runs at the same time.
    void runFor(std::chrono::milliseconds) override {
        if (walked)
            return;
        page = app.webView;
        page->answer = [](const std::string&) { return ScriptResult("3"); };
        for (step = 0; step < steps && !HasFailure(); ++step) {
            happen();
            if (chance(40) == 0)
                settle();
        }
        walked = true;
        done.set_value();
    }

    struct ClientRight final : SendRight {
        ClientRight(Walk& walk, int number) : walk(walk), number(number) {}
        bool send(const PortMessage& message, std::chrono::milliseconds) override {
            return walk.answered(number, message);
        }
        std::unique_ptr<ReceiverWatch> watchReceiver(RunLoop&,
                                                     std::function<void()> callback) override {
            struct Watch final : ReceiverWatch {
                explicit Watch(Client& client) : client(client) {}
                ~Watch() override { client.onGone = nullptr; }
                Client& client;
            };
            walk.clients[number].onGone = std::move(callback);
            if (walk.clients[number].gone)
                walk.hungUp.push_back(number);
            return std::make_unique<Watch>(walk.clients[number]);
        }
        Walk& walk;
        int number;
    };

    std::string where() const {
        return "seed " + std::to_string(seed) + " step " + std::to_string(step);
    }
    int chance(int sides) { return static_cast<int>(random() % static_cast<unsigned>(sides)); }

    /// The model: one answer, to whom the delegate served when it was sent, and who is verified.
    bool answered(int number, const PortMessage& message) {
        Client& client = clients[number];
        client.answers.push_back(message);
        EXPECT_EQ(client.answers.size(), 1U) << where() << ": two answers";
        const Value result = unarchive(message.components.at(0)).value_or(Value());
        const int asked = contentless.contains(number) ? contentless[number] : number;
        EXPECT_EQ(deliveredFor, asked) << where() << ": another one's answer";
        if (const auto key = stringValue(result, "KEY"); key && !key->empty()) {
            ++fromPages;
            EXPECT_EQ(*key, std::to_string(asked)) << where() << ": another page's answer";
        } else if (stringValue(result, "MFA_AUTH_RESULT") == "SUCCESS") {
            ++verifiedOffline;
            EXPECT_TRUE(verifiedAtSending) << where() << ": nobody was verified";
        } else {
            ++failures;
        }
        return !client.gone;
    }

    void deliver(const QueuePtr& queue) {
        if (!queue || !queue->open || queue->messages.empty())
            return;
        auto [message, request] = std::move(queue->messages.front());
        queue->messages.pop_front();
        if (queue == appPort && message.msgid == MessageId::forwardedRequest) {
            const auto asked = unarchive(message.components.at(0));
            if (asked && !asked->empty()) {
                appRequest = static_cast<int>(integerValue(*asked, "NUMBER"));
                // A new offline flow forgets who was verified before.
                if (member(*asked, "OFFLINE_MFA") && !member(*asked, "MFA_REQUEST_URL"))
                    verified = false;
            }
        }
        deliveredFor = request;
        verifiedAtSending = verified || everVerified.contains(request);
        queue->handler(std::move(message));
    }

    void ask() {
        const int number = ++numbers;
        const Value offline = {{"OFFLINE_MFA", true},
                               {"USER_NAME", chance(2) ? "anna" : "bert"},
                               {"DOMAIN_NAME", chance(3) ? "CORP" : "NOBODY"}};
        const Value error = {{"ERROR_MSG", chance(2) ? "text" : ""}};
        const Value none = Value::object();
        const Value flows[] = {{{"MFA_REQUEST_URL", "/mfa"}},      offline, offline, error,
                               {{"MFA_ERROR_MSG", "IDS_UNKNOWN"}}, none,    none};
        Value request = flows[chance(7)];
        request["NUMBER"] = number;
        PortMessage message{.msgid = MessageId::request, .components = {*archive(request)}};
        const int broken = chance(12);
        if (broken == 0)
            message.components.clear();
        if (broken == 1)
            message.components = {{'?'}};
        if (broken != 2)
            message.replyPort = std::make_shared<ClientRight>(*this, number);
        if (broken == 0)
            contentless[number] = 0;
        servicePort->messages.emplace_back(std::move(message), number);
    }

    /// The relay takes the request; one without content takes over what was asked before it.
    void takeRequest() {
        if (servicePort->messages.empty())
            return;
        const auto& [message, number] = servicePort->messages.front();
        if (message.replyPort) {
            current = number;
            if (message.components.empty())
                contentless[number] = base;
            else
                base = number;
        }
        deliver(servicePort);
    }

    void post() {
        if (!page->loading.empty() || shownURL.empty() || shownURL == blankPage)
            return;  // the view drops these
        const std::string code = chance(2) ? code3 : "00000000";
        const Value messages[] = {
            {{"SYSTEM_MFA_RESULT", "SUCCESS"}, {"SYSTEM_MFA_KEY", std::to_string(shownFor)}},
            {{"SYSTEM_MFA_RESULT", "FAILURE"}, {"SYSTEM_MFA_ERROR_MSG", "sorry"}},
            {{"METHOD", "onButtonOK"}, {"PASSCODE", code}},
            {{"METHOD", "onButtonChoose"}},
            {{"SYSTEM_MFA_RESULT", "FAILURE"}, {"SYSTEM_MFA_KEY", std::to_string(shownFor)}}};
        const int said = chance(5);
        const Value& message = messages[said];
        if (said == 3)
            pickedFor = appRequest;
        // A right code on the page of the flow that runs is the only way to be verified offline.
        if (shownURL.starts_with("file:") && shownFor == appRequest && code == code3 &&
            clock.now().time_since_epoch() == std::chrono::seconds(59) &&
            stringValue(message, "METHOD") == "onButtonOK")
            verified = true, everVerified.insert(appRequest);
        const bool stranger = chance(4) == 0;
        page->delegate().didReceiveScriptMessage("MACLoginAgent", message.dump(),
                                                 {stranger ? "https://evil.test/" : shownURL});
    }

    /// The page answers scripts, as late as chance has it; a choice then is a choice of that flow.
    void answerScripts() {
        const std::size_t before = page->files.size();
        page->deliver();
        EXPECT_TRUE(page->files.size() == before || (pickedFor == appRequest && app.window.visible))
            << where() << ": an older flow's page";
    }

    void load(bool succeeds) {
        if (page->loading.empty())
            return;
        const std::string url = std::exchange(page->loading, "");
        page->scripts.clear();
        if (page->delegate().decidePolicyForNavigationAction(url) == NavigationDecision::cancel)
            return;
        if (!succeeds && url != blankPage) {
            page->delegate().didFailProvisionalNavigation({-1004, "refused"});
            return;
        }
        shownURL = url;
        shownFor = appRequest;
        page->delegate().didCommitNavigation();
        page->delegate().didFinishNavigation(url);
        boxDrawn = false;
        for (const std::string& script : page->takeScripts())
            boxDrawn = boxDrawn || script.find("nativeErrDiv") != script.npos;
        page->requests.clear();
        page->files.clear();
        page->userScripts.clear();
    }

    /// One event; most that end something are rarer than what goes on.
    void happen() {
        WebViewDelegate& web = page->delegate();
        const struct {
            int oneIn;
            std::function<void()> event;
        } events[] = {
            {6, [&] { ask(); }},
            {1, [&] { takeRequest(); }},
            {1, [&] { deliver(appPort); }},
            {1, [&] { deliver(localPort); }},
            {8, [&] { leave(std::max(1, numbers - chance(3))); }},
            {1, [&] { hangUp(); }},
            {1, [&] { load(chance(5) != 0); }},
            {1, [&] { answerScripts(); }},
            {20, [&] { web.webContentProcessDidTerminate(); }},
            {8, [&] { app.window.visible ? app.window.close() : void(); }},
            {8, [&] { app.panel.enabled ? app.linkAction() : void(); }},
            {8, [&] { app.window.sitIdle(); }},
            {1, [&] { clock.set(std::chrono::seconds(chance(4) ? 59 : 100'000)); }},
            {12, [&] { web.decidePolicyForNavigationAction("https://evil.test/"); }},
            {12, [&] { web.decidePolicyForNavigationAction("http://server.test/"); }},
            {1, [&] { post(); }},
            {1, [&] { post(); }},
            {1, [&] { post(); }},
        };
        const auto& [oneIn, event] = events[chance(static_cast<int>(std::size(events)))];
        if (chance(oneIn) == 0)
            event();
    }

    void leave(int number) {
        clients[number].gone = true;
        hungUp.push_back(number);
    }
    /// The relay's loop sees that a requester has gone.
    void hangUp() {
        if (hungUp.empty())
            return;
        Client& client = clients[hungUp.front()];
        hungUp.pop_front();
        if (const auto gone = std::exchange(client.onGone, nullptr))
            gone();
    }

    /// Everything that is under way arrives; then no window may be blank.
    void settle() {
        for (int round = 0; round < 50; ++round) {
            while (!servicePort->messages.empty())
                takeRequest();
            while (!hungUp.empty())
                hangUp();
            while (!appPort->messages.empty())
                deliver(appPort);
            while (localPort->open && !localPort->messages.empty())
                deliver(localPort);
            load(true);
            answerScripts();
        }
        EXPECT_TRUE(!app.window.visible || shownURL != blankPage || boxDrawn)
            << where() << ": an empty window";
        const Client& waiting = clients[current];
        const bool abandoned = base == appRequest && waiting.gone && waiting.answers.empty();
        EXPECT_FALSE(abandoned && app.window.visible && !app.window.idleLimit)
            << where() << ": a page that nobody waits for";
    }

    FakeApplication app{*this};
    FakeWebView* page = nullptr;
    QueuePtr appPort, localPort, servicePort = std::make_shared<Queue>();
    std::map<int, Client> clients;
    std::map<int, int> contentless;
    std::set<int> everVerified;
    std::deque<int> hungUp;
    std::mt19937 random;
    unsigned seed = 0;
    int step = 0, steps = 0, numbers = 0, base = 0, current = 0, appRequest = 0, deliveredFor = 0,
        shownFor = 0, pickedFor = 0;
    int fromPages = 0, verifiedOffline = 0, failures = 0;
    bool verified = false, verifiedAtSending = false, walked = false, boxDrawn = false;
    std::string shownURL;
    std::promise<void> done;
};

TEST_F(Walk, NobodyGetsAnAnswerThatIsNotTheirs) {
    const char* given = getenv("QUORL_WALK_SEED");
    seed = given ? static_cast<unsigned>(atoi(given)) : std::random_device()();
    const char* length = getenv("QUORL_WALK_STEPS");
    steps = length ? atoi(length) : usualSteps;
    random.seed(seed);
    std::printf("seed %u, %d steps\n", seed, steps);
    RecordProperty("seed", std::to_string(seed));
    config["SERVERNAME"] = "server.test";
    config["PORTNUMBER"] = "8443";
    store(policy(Value::array(), {3}, 1), {{"AUTH_ENROLLMENT", enrollments()}});
    OfflineDataHandler::setOfflineData("bert@CORP", "POLICY_DATA",
                                       policy(Value::array(), {3, 14}, 1));
    OfflineDataHandler::setOfflineData("bert@CORP", "USER_DATA",
                                       {{"AUTH_ENROLLMENT", enrollments()},
                                        {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 0},
                                        {"LAST_ONLINE_MFA_TIME", 0}});
    const Resources resources{(sandbox.root() / "resources").string()};
    sandbox.write(sandbox.root() / "resources/resources/offlineMFA/OfflineMFA.htm", "page");
    AppDelegate delegate({app, *this, resources, clock});
    // The walk begins when the relay first serves its loop: by then all is set up.
    delegate.applicationDidFinishLaunching();
    done.get_future().wait();
    // Else the walk went nowhere.
    EXPECT_GT(fromPages, 0);
    EXPECT_GT(verifiedOffline, 0);
    EXPECT_GT(failures, 0);
    std::printf("%d from pages, %d verified offline, %d failures\n", fromPages, verifiedOffline,
                failures);
}

}  // namespace
}  // namespace quorl::test
