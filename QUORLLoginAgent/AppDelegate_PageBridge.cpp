#include "AnswerPolicy.h"
#include "AppDelegate.h"
#include "EnrollmentHandler.h"
#include "Log.h"
#include "PageMessage.h"
#include "PageScripts.h"
#include "Redaction.h"
#include "Wipe.h"

namespace quorl {

void AppDelegate::didReceiveScriptMessage(const std::string& channel,
                                          const std::optional<std::string>& body,
                                          const MessageSource& source) {
    if (channel != registerCallbackHandler().scriptMessageHandlerName)
        return;
    logLine("userContentController :: Received message from JavaScript....");
    Value message = parsePageMessage(body);
    const WipeAtExit atExit(message);
    const Value* method = member(message, "METHOD");
    logLine("userContentController :: method - {}", method ? *method : Value());

    const Speaker speaker =
        speakerOf(source.pageURL, getLoginAgentParams(),
                  resources_.pathForResource("resources/offlineMFA/OfflineMFA", "htm"));
    if (!maySay(pageMethod(message), speaker, offlineFlowRuns())) {
        logLine("userContentController :: dropped, it is not for this page to say: {}",
                redactedAddress(source.pageURL));
        return;
    }
    // Kept by name: an accepted code may close the window and replace the controller's owner.
    const auto controller = offlineMFAController_;
    switch (pageMethod(message)) {
        case PageMethod::buttonOK: {
            logLine("onButtonOK :: Received ButtonOk action");
            std::optional<std::string> code = passcode(message);
            if (controller)
                controller->onButtonOK(code);
            if (code)
                wipe(*code);
            break;
        }
        case PageMethod::buttonChoose:
            logLine("onButtonChoose :: Received ButtonChoose action");
            if (controller)
                controller->onButtonChoose();
            break;
        case PageMethod::authorizationHeader:
            getOfflineEnrollmentAPIAuthzHeader();
            break;
        case PageMethod::result:
            // Nobody is verified by a word of the offline page: it can only give up.
            sendMFAResult(speaker == Speaker::server ? message : Value());
            break;
    }
}

bool AppDelegate::offlineFlowRuns() const {
    return request_.isAnswerOwed() && shown_ == PortalOperation::offlineMFA;
}

bool AppDelegate::showsRequest() const {
    return request_.isAnswerOwed() && shown_ && shown_ != PortalOperation::selfService;
}

void AppDelegate::getOfflineEnrollmentAPIAuthzHeader() {
    EnrollmentHandler handler(clock_);
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
    PageResult result = pageResult(message);
    const WipeAtExit atExit(result.response);
    logLine("sendMFAResult : mfaResult - {} , key - {}", result.response["MFA_AUTH_RESULT"],
            lengthOf(result.response["KEY"]));
    if (result.verified || result.errorMessage.empty()) {
        sendMFAResponse(result.response);
        return;
    }
    errorPage_->loadBlankPage();
    showError(ErrorKind::message, result.errorMessage, false);
}

}  // namespace quorl
