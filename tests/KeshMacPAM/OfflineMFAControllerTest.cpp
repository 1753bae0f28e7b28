#include "OfflineFlow.h"

namespace quorl::test {
namespace {

struct Step {
    const char* name;
    Value mandatory, enabled, factors;
    const char* next;
};
void PrintTo(const Step& step, std::ostream* out) {
    *out << step.name;
}
class FirstStep : public OfflineFlow, public ::testing::WithParamInterface<Step> {};

TEST_P(FirstStep, followsThePolicy) {
    const Step& step = GetParam();
    begin(policy(step.mandatory, step.enabled, step.factors));
    EXPECT_EQ(nextView(), step.next);
    EXPECT_FALSE(controller->getIsMFAVerified());
    EXPECT_EQ(controller->getOfflineErrorCode(), window.closes > 0 ? 2 : 0);
}

const Step steps[] = {
    {"two methods, one owed", {}, {3, 14}, 1, "choose 3,14"},
    {"two methods, two owed", {}, {3, 14}, 2, "verify App"},
    {"fewer methods than owed", {}, {3}, 2, "choose 3"},
    {"mandatory first", {14}, {3, 14}, 2, "verify Token"},
    {"order of the mandatory", {16, 3}, {3, 14, 16}, 2, "verify Phone"},
    {"empty for no mandatory", Value::array(), {3, 14}, 1, "choose 3,14"},
    {"not enrolled", {}, {3, 18}, 1, "verify App"},
    {"id as text", {}, {"3", 14}, 1, "verify Token"},
    {"ids of every other kind",
     {},
     {nullptr, true, Value::array(), 3.5, -3, 14},
     1,
     "verify Token"},
    {"no method at all and none owed", {}, Value::array(), 0, "verify "},
    {"lists of another kind", {}, "3,14", 1, "choose "},
    {"number as text", {}, {3, 14}, "1", "choose 3,14"},
    {"negative", {}, {3, 14}, -1, "ended"},
    {"no number", {}, {3, 14}, "one", "ended"},
    {"nothing", {}, {3, 14}, nullptr, "ended"},
    {"huge", {}, {3, 14}, 1e300, "choose 3,14"},
    {"mandatory not enrolled", {18}, {3, 14}, 1, "ended"},
    {"mandatory not enabled", {14}, {3}, 1, "ended"},
    {"mandatory of another kind", "3", {3, 14}, 1, "ended"},
};
INSTANTIATE_TEST_SUITE_P(Policies, FirstStep, ::testing::ValuesIn(steps));

TEST_F(OfflineFlow, mandatoryWithoutCodesEndsTheFlowBeforeAPageShows) {
    Value enrolled = enrollments();
    enrolled["7"] = enrollment("Push", "SHA1", "GEZDGNBV");
    begin(policy({3, 7}, {3, 7}, 1), {{"AUTH_ENROLLMENT", enrolled}});
    EXPECT_EQ(window.closes, 1);
    EXPECT_TRUE(view.files.empty());
    EXPECT_EQ(controller->getOfflineErrorCode(), 2);
    EXPECT_TRUE(log.has("no usable authenticator for mandatory auth-id : 7"));
}

TEST_F(OfflineFlow, listsOfTheWrongKindAreLoggedAndCountAsEmpty) {
    begin(policy(Value::array(), {{"a", 1}}, 0), {{"AUTH_ENROLLMENT", {1, 2}}});
    EXPECT_EQ(nextView(), "verify ");
    for (const char* line : {"ENABLED_AUTHS is no list", "AUTH_ENROLLMENT is no dictionary"})
        EXPECT_TRUE(log.has(line)) << line;
    // Nothing is owed, but nothing was verified either.
    controller->onButtonOK("123456");
    EXPECT_FALSE(controller->getIsMFAVerified());
    EXPECT_EQ(window.closes, 0);
}

TEST_F(OfflineFlow, endsWithoutAUsableRecord) {
    start();
    EXPECT_TRUE(log.has("getOfflineData :: User policy data not found / user not enrolled \n"));
    const Value unusable[][2] = {{nullptr, Value::object()},
                                 {Value::object(), nullptr},
                                 {Value::array(), Value::object()},
                                 {"text", 5}};
    for (const auto& [policyData, userData] : unusable)
        begin(policyData, userData);
    EXPECT_EQ(log.count("getOfflineData :: User policy data not found /User auth data not found"),
              4U);
    EXPECT_EQ(log.count("Offline MFA not enabled or User not enrolled for offline"), 5U);
    EXPECT_EQ(window.closes, 5);
    EXPECT_TRUE(view.files.empty());
}

TEST_F(OfflineFlow, wrongAndEmptyCodesShowTheSameErrorAndOweTheSame) {
    begin(policy(Value::array(), {3}, 1));
    finishLoad();
    const std::vector<std::string> error = {
        "document.getElementById('PASSCODE').value='';",
        "document.getElementById('ALERTDATA').innerHTML = '" +
            text("IDS_MFA_OFFLINE_ERRORMSG_OTP") + "';",
        "document.getElementById('ALERT').removeAttribute('class');"};
    const std::string tenThousand(10000, '9');
    const std::optional<std::string> wrong[] = {"94287083",  "9428708",  tenThousand,
                                                " 94287082", "٩٤٢٨٧٠٨٢", "94287\u200b082"};
    for (const auto& code : wrong) {
        controller->onButtonOK(code);
        EXPECT_EQ(view.takeScripts(), error);
    }
    EXPECT_EQ(log.count("MFAController::OnButtonOK : Entered OTP is invalid"), std::size(wrong));
    for (const std::optional<std::string>& code : {std::optional<std::string>(), {""}}) {
        controller->onButtonOK(code);
        EXPECT_EQ(view.takeScripts(), error);
    }
    EXPECT_EQ(log.count("MFAController::OnButtonOK : Entered OTP is empty"), 2U);
    EXPECT_EQ(view.files.size(), 1U);
    controller->onButtonOK(code3);
    EXPECT_TRUE(controller->getIsMFAVerified());
    EXPECT_EQ(window.closes, 1);
    EXPECT_EQ(view.files.size(), 1U);
}

TEST_F(OfflineFlow, mandatoryThenTheOnlyOptionalMethod) {
    begin(policy({14, 14}, {3, 14}, 2));
    EXPECT_EQ(nextView(), "verify Token");
    controller->onButtonOK(code3);
    EXPECT_EQ(nextView(), "verify Token") << "another method's code";
    controller->onButtonOK(code14);
    EXPECT_EQ(nextView(), "verify App");
    EXPECT_FALSE(controller->getIsMFAVerified());
    controller->onButtonOK(code3);
    EXPECT_TRUE(controller->getIsMFAVerified());
    EXPECT_EQ(nextView(), "ended");
}

TEST_F(OfflineFlow, chosenMethodsAreNotOfferedAgain) {
    begin(policy(Value::array(), {3, 14, 16}, 2));
    EXPECT_EQ(nextView(), "choose 3,14,16");
    pick("16");
    EXPECT_EQ(nextView(), "verify Phone");
    view.takeScripts();
    controller->onButtonChoose();
    EXPECT_TRUE(view.takeScripts().empty()) << "choosing asks the page nothing in another view";
    controller->onButtonOK(code16);
    EXPECT_EQ(nextView(), "choose 3,14");
    pick("3");
    controller->onButtonOK(code3);
    EXPECT_TRUE(controller->getIsMFAVerified());
}

TEST_F(OfflineFlow, choosingNothingNonsenseOrAnUnknownMethodVerifiesNothing) {
    begin(policy(Value::array(), {3, 14}, 1));
    view.answer = [](const std::string&) { return tl::unexpected<std::string>("null"); };
    controller->onButtonChoose();
    view.deliver();
    EXPECT_TRUE(log.has("onButtonChoose :: Error getting auth value"));
    view.answer = [](const std::string&) { return ScriptResult(std::nullopt); };
    EXPECT_EQ(nextView(), "choose 3,14");

    pick("sesame");
    EXPECT_EQ(nextView(), "verify ");
    controller->onButtonOK(code3);
    EXPECT_EQ(view.takeScripts()[1], "document.getElementById('ALERTDATA').innerHTML = '';");
    EXPECT_FALSE(controller->getIsMFAVerified());
    // A method that is none of the user's.
    begin(policy(Value::array(), {3, 14}, 1));
    pick("18");
    finishLoad();
    controller->onButtonOK(code3);
    EXPECT_TRUE(log.has("Entered OTP is invalid"));
    EXPECT_FALSE(controller->getIsMFAVerified());
}

TEST_F(OfflineFlow, okOutsideTheVerifyViewOnlyChecksWhatIsOwed) {
    begin(policy(Value::array(), {3, 14}, 1));
    controller->onButtonOK(code3);
    EXPECT_EQ(nextView(), "choose 3,14");
    EXPECT_EQ(view.files.size(), 2U);
    begin(policy(Value::array(), {3, 14}, 0));
    controller->onButtonOK("");
    EXPECT_TRUE(controller->getIsMFAVerified());
}

}  // namespace
}  // namespace quorl::test
