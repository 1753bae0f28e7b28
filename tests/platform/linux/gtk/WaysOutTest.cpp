#include "Handle.h"
#include "WebStage.h"

#include <gtk/gtk.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace quorl::test {
namespace {

using WaysOut = WebStage;

// What is on the screen beside our two windows.
int strangeWindows() {
    GList* windows = gtk_window_list_toplevels();
    int shown = 0;
    for (GList* entry = windows; entry; entry = entry->next)
        shown += gtk_widget_get_visible(GTK_WIDGET(entry->data)) ? 1 : 0;
    g_list_free(windows);
    return shown - 1;
}

TEST_F(WaysOut, NothingLeadsOutOfThePage) {
    startServer();
    show();
    const std::string path = "/page/ways-out";
    load({.url = url(path)});
    const auto nothingAppears = [this](const std::string& action) {
        serveFor(std::chrono::milliseconds(200));
        EXPECT_EQ(strangeWindows(), 0) << action;
    };
    const auto click = [&](const std::string& id) {
        const std::string tried = evaluate("document.getElementById('" + id +
                                           "').click();"
                                           "document.getElementById('tried').textContent");
        nothingAppears(id);
        return tried;
    };
    EXPECT_EQ(click("open"), "open: refused");
    EXPECT_EQ(click("print"), "print: returned");
    EXPECT_EQ(click("alert"), "alert: confirm false, prompt null");
    EXPECT_EQ(click("full"), "full: asked");
    click("blank");
    click("download");
    click("attachment");
    // Really pressed keys and buttons go other ways than a page's own clicks.
    for (const char* action : {"mousemove 640 300 click 3", "key ctrl+p", "key ctrl+o",
                               "key ctrl+shift+i", "key F12", "key ctrl+n", "key Escape"}) {
        Subprocess tool({.command = {"sh", "-c", std::string("xdotool ") + action}});
        until([&] { return !tool.running(); });
        nothingAppears(action);
    }
    EXPECT_EQ(evaluate("location.pathname"), path);
    EXPECT_EQ(evaluate("document.fullscreenElement === null"), "1");
    EXPECT_TRUE(application->browserWindow()->isVisible());
    EXPECT_EQ(delegate.count("finish"), 0u);
    EXPECT_TRUE(requests("/page/popup").empty());
    evaluate("Notification.requestPermission().then((answer) => window.answer = answer); 1");
    EXPECT_TRUE(until([this] { return evaluate("window.answer") == "denied"; }));
}

TEST_F(WaysOut, NoChooserOfColoursOpens) {
    startServer();
    show();
    load({.url = url("/page/echo")});
    evaluate(
        "document.body.innerHTML = '<input type=color id=c style=\"position:fixed;inset:0;"
        "width:100vw;height:100vh\">'; c.onclick = () => window.clicked = 1; 1");
    Subprocess tool({.command = {"xdotool", "mousemove", "640", "400", "click", "1"}});
    ASSERT_TRUE(until([this] { return evaluate("window.clicked") == "1"; }));
    serveFor(std::chrono::milliseconds(500));
    EXPECT_EQ(strangeWindows(), 0);
}

// Listens where a page must not call, and says nothing.
class PlainListener {
  public:
    PlainListener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
        listen(socket_.get(), 16);
        socklen_t size = sizeof address;
        getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size);
        port_ = std::to_string(ntohs(address.sin_port));
    }
    const std::string& port() const { return port_; }
    int calls() {
        int count = 0;
        while (FileDescriptor(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC)))
            ++count;
        return count;
    }

  private:
    FileDescriptor socket_;
    std::string port_;
};

TEST_F(WaysOut, NothingInAPageTravelsInTheClear) {
    startServer();
    load({.url = url("/page/echo")});
    PlainListener plain;
    const auto calls = [&](const std::string& script) {
        evaluate(script + "; 1");
        serveFor(std::chrono::milliseconds(500));
        return plain.calls();
    };
    const std::string at = "//127.0.0.1:" + plain.port() + "/x";
    for (const std::string& script :
         {"new Image().src = 'http:" + at + "'",
          "document.head.append(Object.assign(document.createElement('script'), {src: 'http:" + at +
              "'}))",
          "document.head.append(Object.assign(document.createElement('link'), {rel: 'stylesheet',"
          "href: 'http:" +
              at + "'}))",
          "document.body.append(Object.assign(document.createElement('iframe'), {src: 'http:" + at +
              "'}))",
          "fetch('http:" + at + "', {mode: 'no-cors'}).catch(() => 0)",
          "navigator.sendBeacon('http:" + at + "', 'x')",
          "try { new WebSocket('ws:" + at + "') } catch { 0 }"})
        EXPECT_EQ(calls(script), 0) << script;
    EXPECT_GT(calls("fetch('https:" + at + "', {mode: 'no-cors'}).catch(() => 0)"), 0)
        << "the listener hears what does go out";
}

TEST_F(WaysOut, NobodyIsAskedForAPassword) {
    const std::string reply = sandbox.root() / "reply";
    TestSandbox::write(reply,
                       "HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=\"r\"\r\n"
                       "Content-Type: text/html\r\nContent-Length: 2\r\n\r\nno");
    startServer({"--only", "/secret", "--raw-file", reply});
    show();
    EXPECT_EQ(load({.url = url("/secret")}), "policy /secret, start, commit, finish /secret");
    EXPECT_EQ(evaluate("document.body.textContent"), "no");
    EXPECT_EQ(strangeWindows(), 0);
}

TEST_F(WaysOut, NoPageKeepsAFileInput) {
    startServer();
    show();
    load({.url = url("/page/files")});
    // One lies in the page, one in its frame, one comes by itself after a moment, one is made now,
    // and one turns into a file input after it has been put in.
    const std::string left =
        "document.querySelectorAll('input').length + ' ' +"
        "document.getElementById('frame').contentDocument.querySelectorAll('input').length";
    evaluate(
        "document.getElementById('add').click(); const late = document.createElement('input');"
        "late.id = 'late'; document.body.append(late); late.type = 'file';"
        "document.getElementById('hidden').click(); 1");
    EXPECT_TRUE(until([&] { return evaluate(left) == "0 0"; }));
    serveFor(std::chrono::milliseconds(400));
    EXPECT_EQ(evaluate(left), "0 0");
    EXPECT_EQ(strangeWindows(), 0);
}

}  // namespace
}  // namespace quorl::test
