#include "ErrorPage.h"
#include "FileInputs.h"
#include "PageScripts.h"
#include "TestSandbox.h"

#include <gtest/gtest.h>

namespace quorl {
namespace {

std::string golden(const std::string& name) {
    return test::TestSandbox::read(QUORL_TEST_DATA "/page-scripts/" + name);
}

TEST(PageScripts, AreThePrescribedTextsToTheLetter) {
    EXPECT_EQ(errorPageScript("No way <b>in</b>", true, "https://h:1/x"), golden("error-page.js"));
    EXPECT_EQ(fileInjectionScript(PageEvent::navigateComplete), golden("file-inputs-at-commit.js"));
    EXPECT_EQ(fileInjectionScript(PageEvent::documentComplete),
              golden("file-inputs-when-complete.js"));
    EXPECT_EQ(authHeaderResultScript("{\"a\": 1}"), "handleAuthHeaderResult({\"a\": 1});");
}

}  // namespace
}  // namespace quorl
