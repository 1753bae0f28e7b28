#pragma once

#include "Bytes.h"
#include "ConfigParser.h"
#include "CryptoUtils.h"
#include "FakeWebView.h"
#include "FakeWindow.h"
#include "HtmlUtils.h"
#include "Localization.h"
#include "OfflineDataHandler.h"
#include "OfflineMFAController.h"
#include "Resources.h"
#include "TestClock.h"
#include "TestSandbox.h"

#include <gtest/gtest.h>

namespace quorl::test {

/// A user with stored enrollments in front of the offline page, the window and the view being
/// fakes. Every app's codes are those of RFC 6238's table at second 59.
class OfflineFlow : public ::testing::Test {
  protected:
    static constexpr const char* user = "anna@CORP";
    static constexpr const char* accessKey =
        "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f";

    OfflineFlow() {
        config = Value::object();
        config["ACCESS_KEY"] = accessKey;
        config["OFFLINE_MFA"] = "true";
        config["LOCALE_ID"] = "en";
        window.visible = true;
    }

    /// An app (id 3: SHA1) or token (id 14: SHA256, id 16: SHA512), and its right code.
    static Value enrollment(const char* name, const char* algorithm, const char* secret) {
        Bytes key;
        for (std::uint8_t i = 0; i < 32; ++i)
            key.push_back(i);
        return {{"AUTH_DISPLAY_NAME", name}, {"ALGORITHM_TYPE", algorithm},
                {"EXPIRY_TIME", 30},         {"DIGITS", 8},
                {"AUTH_VARIANCE", 0},        {"SECRET_KEY", encryptText(secret, key, iv).value()}};
    }
    static Value enrollments() {
        return {{"3", enrollment("App", "SHA1", "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ")},
                {"14", enrollment("Token", "SHA256",
                                  "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQGEZA")},
                {"16", enrollment("Phone", "SHA512",
                                  "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
                                  "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQGEZDGNA")}};
    }
    static constexpr const char* code3 = "94287082";
    static constexpr const char* code14 = "46119246";
    static constexpr const char* code16 = "90693936";

    static Value policy(const Value& mandatory, const Value& enabled, const Value& factors) {
        return {{"MANDATORY_AUTHS", mandatory},
                {"ENABLED_AUTHS", enabled},
                {"MFA_NO_OF_FACTORS", factors},
                {"OFFLINE_MFA_LIMIT_TYPE", 0},
                {"OFFLINE_MFA_LIMIT_VALUE", 0}};
    }

    /// Counters that are not given begin at 0.
    void store(const Value& policyData, Value userData) {
        if (userData.is_object()) {
            const Value given = userData;
            userData["SUCCESSFUL_OFFLINE_MFA_ATTEMPTS"] = 0;
            userData["LAST_ONLINE_MFA_TIME"] = 0;
            userData.update(given);
        }
        ASSERT_TRUE(OfflineDataHandler::ensureDataEncryptionKey());
        OfflineDataHandler::setOfflineData(user, "POLICY_DATA", policyData);
        OfflineDataHandler::setOfflineData(user, "USER_DATA", userData);
    }
    /// Stores the record and starts the flow.
    void begin(const Value& policyData,
               const Value& userData = {{"AUTH_ENROLLMENT", enrollments()}}) {
        store(policyData, userData);
        start();
    }
    void start() {
        controller = std::make_shared<OfflineMFAController>("anna", "CORP", html, clock);
        controller->doAuthenticate();
    }
    /// The page has loaded; gives the scripts that fill it.
    std::vector<std::string> finishLoad() {
        view.deliver();
        view.takeScripts();
        controller->didFinishNavigation();
        return view.takeScripts();
    }
    void pick(const std::string& value) {
        view.answer = [value](const std::string&) { return ScriptResult(value); };
        controller->onButtonChoose();
        view.deliver();
    }

    /// What the next load shows: "choose 3,14", "verify App", or "ended".
    std::string nextView() {
        if (window.closes > 0)
            return "ended";
        const std::string heading =
            "document.getElementById('T2').innerHTML = 'Enter the code from ";
        std::string rows;
        for (const std::string& script : finishLoad()) {
            const auto at = script.find("value=\"");
            if (script.starts_with("document.getElementById('RADIOGROUP')"))
                rows += (rows.empty() ? "" : ",") +
                        script.substr(at + 7, script.find('"', at + 7) - at - 7);
            if (script.starts_with(heading))
                return "verify " +
                       script.substr(heading.size(), script.size() - heading.size() - 2);
        }
        return "choose " + rows;
    }

    static std::string text(const char* key) { return getLocalizedString(key, "en"); }

    TestSandbox sandbox;
    LogCapture log;
    Value& config = getProductConfig(getConfigFilePath());
    TestClock clock{std::chrono::seconds(59)};
    FakeWebView view;
    FakeBrowserWindow window;
    std::shared_ptr<HtmlUtils> html = std::make_shared<HtmlUtils>(view, window, mainBundle());
    std::shared_ptr<OfflineMFAController> controller;
};

}  // namespace quorl::test
