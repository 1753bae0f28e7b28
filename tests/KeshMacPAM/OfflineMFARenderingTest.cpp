#include "OfflineFlow.h"
#include "OfflinePageScripts.h"

#include <algorithm>

namespace quorl::test {
namespace {

using Scripts = std::vector<std::string>;

std::string golden(const std::string& name) {
    return TestSandbox::read(QUORL_TEST_DATA "/offline-page/" + name);
}

// The table of static texts is one JSON object, whose members have no order.
Value staticTexts(const std::string& script) {
    const std::string before = "var i18nText = ";
    const std::string after = ";loadResources();";
    if (!script.starts_with(before) || !script.ends_with(after))
        return {};
    return Value::parse(script.substr(before.size(), script.size() - before.size() - after.size()));
}

TEST(OfflinePageScripts, timerIsTheAgreedScript) {
    EXPECT_EQ(timerScript(2, "Time is up", "Start again"), golden("timer.js"));
}

TEST_F(OfflineFlow, fillsTheVerifyViewInOrder) {
    Value data = policy(Value::array(), {3}, 1);
    data["OFFLINE_MFA_LIMIT_TYPE"] = limitAttempts;
    data["OFFLINE_MFA_LIMIT_VALUE"] = 10;
    begin(data, {{"AUTH_ENROLLMENT", enrollments()}, {"SUCCESSFUL_OFFLINE_MFA_ATTEMPTS", 5}});
    Scripts scripts = finishLoad();
    ASSERT_FALSE(scripts.empty());
    const Value texts = staticTexts(scripts.back());
    scripts.pop_back();
    const std::string timer = timerScript(2, text("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP1"),
                                          text("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP2"));
    const Scripts expected = {
        "document.getElementById('USERNAME').innerHTML = 'anna';",
        "document.getElementById('DOMAINNAME').innerHTML = '(CORP)';",
        "document.getElementById('LIMIT_TYPE').innerHTML = '" +
            text("IDS_MFA_OFFLINE_LIMIT_ATTEMPTS") + "';",
        "document.getElementById('SHOW_LIMIT').removeAttribute('class');",
        "document.getElementById('LIMIT_VALUE').innerHTML = '5';",
        "document.getElementById('T2').innerHTML = 'Enter the code from App';",
        "document.getElementById('AUTHTAB').removeAttribute('class');",
        timer + "addClass(document.getElementById(\"LIMIT_VALUE\"), \"text-danger\");",
        "document.getElementById('T3').innerHTML = '" + text("IDS_MFA_OFFLINE_HTML_T3") + "';",
        "document.getElementById(\"PASSCODE\").focus(); "
        "document.getElementById(\"PASSCODE\").setAttribute(\"maxlength\",8 );"};
    EXPECT_EQ(scripts, expected);

    EXPECT_EQ(texts.size(), 10U);
    for (const auto& [key, shown] : texts.items())
        EXPECT_EQ(shown, text(key.c_str()));
}

TEST_F(OfflineFlow, fillsTheChooseViewInOrder) {
    begin(policy(Value::array(), {3, 14, 16}, 1));
    Scripts scripts = finishLoad();
    Scripts expected = {"document.getElementById('USERNAME').innerHTML = 'anna';",
                        "document.getElementById('DOMAINNAME').innerHTML = '(CORP)';"};
    std::istringstream rows(golden("rows.html"));
    for (std::string row; std::getline(rows, row);)
        expected.push_back(
            "document.getElementById('RADIOGROUP').insertAdjacentHTML('beforeEnd', '" + row +
            "');");
    expected.push_back(timerScript(2, text("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP1"),
                                   text("IDS_MFA_OFFLINE_ERRORMSG_SESSIONEXP2")));
    expected.push_back("document.getElementById('CHOOSETAB').removeAttribute('class');");
    expected.push_back("");
    ASSERT_FALSE(scripts.empty());
    scripts.pop_back();
    EXPECT_EQ(scripts, expected);
}

TEST_F(OfflineFlow, aTokenIsNamedByItsSerialNumberAndLimitsByDays) {
    Value enrolled = enrollments();
    enrolled["14"]["HARDWARE_TOKEN_SERIAL_NUMBER"] = "QK-1";
    enrolled["3"]["HARDWARE_TOKEN_SERIAL_NUMBER"] = "";
    Value data = policy(Value::array(), {14, 3}, 2);
    data["OFFLINE_MFA_LIMIT_TYPE"] = limitDays;
    data["OFFLINE_MFA_LIMIT_VALUE"] = 3;
    begin(data, {{"AUTH_ENROLLMENT", enrolled}});
    Scripts scripts = finishLoad();
    EXPECT_EQ(scripts[4], "document.getElementById('LIMIT_VALUE').innerHTML = '3';");
    EXPECT_TRUE(scripts[7].ends_with(limitWarningScript()));
    EXPECT_EQ(scripts[8], "document.getElementById('T3').innerHTML = '" +
                              replaceAll(text("IDS_MFA_OFFLINE_HTML_HARDWARE_TOKEN_DESC"),
                                         "%SERIAL_NUMBER%", "QK-1") +
                              "';");
    controller->onButtonOK(code14);
    scripts = finishLoad();
    EXPECT_EQ(scripts[8], "document.getElementById('T3').innerHTML = '" +
                              text("IDS_MFA_OFFLINE_HTML_T3") + "';");
}

TEST_F(OfflineFlow, theHelpLineGoesToThePageAsText) {
    config["HELP_TEXT"] = "Desk <b>\"7'";
    begin(policy(Value::array(), {3}, 1));
    const Scripts scripts = finishLoad();
    EXPECT_EQ(scripts.at(scripts.size() - 2),
              R"(setHelp({"label":")" + text("IDS_HELP_LABEL") + R"(","text":"Desk <b>\"7'"});)");
}

TEST_F(OfflineFlow, theCustomLogoIsShownWhenThereIsOne) {
    store(policy(Value::array(), {3}, 1), {{"AUTH_ENROLLMENT", enrollments()}});
    TestSandbox::write(sandbox.support() / "logo.png", "PNG");
    const std::string shown = "document.getElementById('PRODUCTLOGO').src='" +
                              (sandbox.root() / "base").string() + "//QUORLLoginAgent/logo.png';";
    for (const char* name : {"", "none.png", "logo.png"}) {
        config["OFFLINE_WEB_LOGO_NAME"] = name;
        start();
        EXPECT_EQ(std::ranges::count(finishLoad(), shown), name == std::string("logo.png")) << name;
    }
}

}  // namespace
}  // namespace quorl::test
