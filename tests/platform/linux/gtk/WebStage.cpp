#include "WebStage.h"

#include "GtkApplication.h"

#include <algorithm>
#include <map>

namespace quorl::test {

std::size_t RecordingDelegate::count(const std::string& event) const {
    return static_cast<std::size_t>(std::ranges::count_if(
        events, [&](const std::string& told) { return told.starts_with(event); }));
}

std::string RecordingDelegate::take() {
    std::string all;
    for (std::string event : std::exchange(events, {})) {
        if (const auto scheme = event.find("https://"); scheme != std::string::npos) {
            const auto path = std::min(event.find('/', scheme + 8), event.size());
            event.erase(scheme, path - scheme);
        }
        all += (all.empty() ? "" : ", ") + event;
    }
    return all;
}

void WebStage::SetUp() {
    auto made = makeGtkApplication(mainBundle());
    ASSERT_TRUE(made) << made.error();
    application = std::move(*made);
    // The test plays the greeter and the keyboard, too, which untrusted clients may not.
    unsetenv("XAUTHORITY");
    view = application->makeWebView(
        {.scriptMessageHandlerName = "MACLoginAgent", .delegate = &delegate});
}

void WebStage::TearDown() {
    view.reset();
    application.reset();
}

std::vector<Value> WebStage::requests(const std::string& path) const {
    auto found = servers_.back()->requests();
    std::erase_if(found, [&](const Value& request) { return request["target"] != path; });
    return found;
}

std::optional<std::string> WebStage::header(const Value& request, const std::string& name) {
    const auto values = TestServer::headers(request, name);
    return values.empty() ? std::nullopt : std::optional(values.front());
}

bool WebStage::until(const std::function<bool()>& condition, std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        serveFor(std::chrono::milliseconds(5));
    }
    return true;
}

void WebStage::serveFor(std::chrono::milliseconds duration) {
    application->mainRunLoop().runFor(duration);
}

std::string WebStage::load(const PageRequest& request) {
    delegate.take();
    view->loadRequest(request);
    EXPECT_TRUE(until([this] { return delegate.count("finish") + delegate.count("failed") > 0; }))
        << "no end of " << request.url;
    // Whatever wrongly follows the end is to be seen too.
    serveFor(std::chrono::milliseconds(50));
    return delegate.take();
}

std::string WebStage::evaluate(const std::string& script) {
    std::optional<std::string> result;
    view->evaluateJavaScript(script, [&result](const ScriptResult& value) {
        result = value ? value->value_or("nothing") : "error: " + value.error();
    });
    EXPECT_TRUE(until([&] { return result.has_value(); })) << script;
    return result.value_or("no answer");
}

void WebStage::show() {
    BrowserWindow& window = *application->browserWindow();
    window.prepareForLoginWindow();
    window.setFrame({{0, 0}, {896, 560}});
    window.center();
    window.layOut({{0, 525}, {896, 8}}, {{0, 0}, {896, 525}});
    window.orderFrontRegardless();
    window.makeKeyWindow();
}

std::vector<pid_t> WebStage::descendants(const std::string& name) {
    struct Process {
        std::string name;
        pid_t parent;
    };
    std::map<pid_t, Process> all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string stat = TestSandbox::read(entry.path() / "stat");
        const auto open = stat.find('(');
        const auto close = stat.rfind(')');
        if (close != std::string::npos && isdigit(entry.path().filename().string()[0]))
            all[std::stoi(stat)] = {stat.substr(open + 1, close - open - 1),
                                    std::stoi(stat.substr(close + 4))};
    }
    std::vector<pid_t> found;
    for (const auto& [pid, process] : all) {
        pid_t ancestor = process.parent;
        while (ancestor != getpid() && all.contains(ancestor))
            ancestor = all[ancestor].parent;
        if (ancestor == getpid() && process.name.starts_with(name))
            found.push_back(pid);
    }
    return found;
}

}  // namespace quorl::test
