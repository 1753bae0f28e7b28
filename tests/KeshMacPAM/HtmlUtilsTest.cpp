#include "FakeWebView.h"
#include "FakeWindow.h"
#include "HtmlUtils.h"
#include "TestSandbox.h"

#include <gtest/gtest.h>

namespace quorl::test {
namespace {

class HtmlUtilsTest : public ::testing::Test {
  protected:
    TestSandbox sandbox;
    LogCapture log;
    Resources resources{sandbox.root().string()};
    FakeWebView view;
    FakeBrowserWindow window;
    HtmlUtils html{view, window, resources};
};

TEST_F(HtmlUtilsTest, aFailedScriptIsLoggedAndTheNextOneRuns) {
    view.answer = [](const std::string& script) -> ScriptResult {
        if (script == "bad")
            return tl::unexpected<std::string>("SyntaxError: x");
        return std::nullopt;
    };
    html.executeScript("bad");
    html.executeScript("good");
    view.deliver();
    EXPECT_EQ(log.count("HtmlUtil::executeScript: script execution failed with error: "
                        "SyntaxError: x\n"),
              1U);
    EXPECT_EQ(view.scripts.size(), 2U);
}

TEST_F(HtmlUtilsTest, loadsAPageThatExistsAndLeavesTheViewOtherwise) {
    TestSandbox::write(sandbox.root() / "sub" / "page.htm", "<p>");
    html.loadFromResource("sub/page", "htm");
    const std::string path = sandbox.root().string() + "/sub/page.htm";
    EXPECT_EQ(view.files, std::vector<std::string>{path});
    EXPECT_FALSE(view.navigationGestures);
    EXPECT_TRUE(log.has("HtmlUtil::loadFromResource: resource path : " + path));

    html.loadFromResource("none", "htm");
    EXPECT_EQ(view.files.size(), 1U);
    EXPECT_TRUE(log.has("HtmlUtil::loadFromResource: resource path : (null)\n"));
    EXPECT_TRUE(
        log.has("HtmlUtil::loadFromResource: resource file not found - resourceName : none "
                ", type: htm\n"));
}

TEST_F(HtmlUtilsTest, readsResourcesOfTextOnly) {
    TestSandbox::write(sandbox.root() / "a.txt", "höhe\n");
    TestSandbox::write(sandbox.root() / "b.txt", "h\xf6he");
    EXPECT_EQ(html.getStringFromResource("a", "txt"), "höhe\n");
    EXPECT_EQ(html.getStringFromResource("b", "txt"), "");
    EXPECT_EQ(html.getStringFromResource("c", "txt"), "");
}

}  // namespace
}  // namespace quorl::test
