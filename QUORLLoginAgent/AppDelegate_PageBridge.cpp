#include "AppDelegate.h"
#include "EnrollmentHandler.h"
#include "Log.h"
#include "PageMessage.h"

namespace quorl {

void AppDelegate::didReceiveScriptMessage(const std::string& channel,
                                          const std::optional<std::string>& body) {
    if (channel != registerCallbackHandler().scriptMessageHandlerName)
        return;
    logLine("userContentController :: Received message from JavaScript....");
    const Value message = parsePageMessage(body);
    const Value* method = member(message, "METHOD");
    logLine("userContentController :: method - {}", method ? *method : Value());

    // Kept by name: an accepted code may close the window and replace the controller's owner.
    const auto controller = offlineMFAController_;
    switch (pageMethod(message)) {
        case PageMethod::buttonOK:
            logLine("onButtonOK :: Received ButtonOk action");
            if (controller)
                controller->onButtonOK(passcode(message));
            break;
        case PageMethod::buttonChoose:
            logLine("onButtonChoose :: Received ButtonChoose action");
            if (controller)
                controller->onButtonChoose();
            break;
        case PageMethod::authorizationHeader:
            getOfflineEnrollmentAPIAuthzHeader();
            break;
        case PageMethod::result:
            sendMFAResult(message);
            break;
    }
}

void AppDelegate::getOfflineEnrollmentAPIAuthzHeader() {
    const EnrollmentHandler handler(clock_);
    const std::optional<Value> header = handler.getAddEnrollmentHeader();
    if (!header) {
        logLine("getOfflineEnrollmentAPIAuthzHeader :: Error converting authHeaderJson : {}",
                "no header could be signed");
        return;
    }
    const std::string json = header->dump(2, ' ', false, Value::error_handler_t::replace);
    webViewControl_->evaluateJavaScript(
        authHeaderResultScript(json), [](const ScriptResult& result) {
            if (result)
                logLine("getOfflineEnrollmentAPIAuthzHeader: script successfully executed");
            else
                logLine(
                    "getOfflineEnrollmentAPIAuthzHeader: script execution failed with error: {}",
                    result.error());
        });
    logLine("getOfflineEnrollmentAPIAuthzHeader -  : completed");
}

void AppDelegate::sendMFAResult(const Value& message) {
    logLine(
        "sendMFAResult : Received message from the browser portal via the web script - "
        "mfaResponse..");
    const PageResult result = pageResult(message);
    logLine("sendMFAResult : mfaResult - {} , key - {}", result.response["MFA_AUTH_RESULT"],
            result.response["KEY"]);
    if (result.verified || result.errorMessage.empty()) {
        sendMFAResponse(result.response);
        return;
    }
    loadBlankPage();
    showError(result.errorMessage, false);
}

}  // namespace quorl
