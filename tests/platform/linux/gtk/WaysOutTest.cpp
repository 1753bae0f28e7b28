#include "WebStage.h"

#include <gtk/gtk.h>

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
