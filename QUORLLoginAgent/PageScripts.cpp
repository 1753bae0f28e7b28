#include "PageScripts.h"

#include "QuotedValue.h"

#include <fmt/format.h>

namespace quorl {
namespace {

// The texts of these scripts are prescribed to the letter, runs of blanks included.
// clang-format off
constexpr std::string_view errorBoxStyle =
    R"script(font-family:Verdana, Arial, Helvetica, sans-serif; font-size:10px;)script"
    R"script( background:#ffeded; border:1px solid #ff0000; padding:10px 25px;)script"
    R"script( text-align:center; margin:auto; top:45%; width:60%; position:relative;)script"
    R"script( word-wrap:break-word;)script";

constexpr fmt::string_view errorPageTemplate =
    R"script(                    var errorDiv = document.getElementById('nativeErrDiv');)script"
    R"script(                    if (!errorDiv) {{)script"
    R"script(                        errorDiv = document.createElement('div');)script"
    R"script(                        errorDiv.style.cssText = '{}';)script"
    R"script(                        errorDiv.id = 'nativeErrDiv';)script"
    R"script(                        document.body.appendChild(errorDiv);)script"
    R"script(                    }})script"
    R"script(                    errorDiv.innerHTML = '{}&nbsp;';)script"
    R"script(                    if ({}) {{)script"
    R"script(                        var reloadLink = document.createElement('a');)script"
    R"script(                        reloadLink.href = '{}';)script"
    R"script(                        reloadLink.innerHTML = 'Retry';)script"
    R"script(                        errorDiv.appendChild(reloadLink);)script"
    R"script(                    }})script";

constexpr std::string_view fileInputFunctions =
    R"script(function removeInputs(){var y = document.getElementsByTagName("input");)script"
    R"script(for(var i=y.length-1;i>=0;i--){var typeAttribute = y[i].getAttribute("type");)script"
    R"script(if(typeAttribute && typeAttribute.toLowerCase() == 'file'){)script"
    R"script(y[i]. parentNode. removeChild(y[i]);}}}function preventFileEvent(eve){)script"
    R"script(if(eve && eve.srcElement.type == 'file'){eve.preventDefault();}removeInputs();})script";

constexpr std::string_view removeInputsNow = R"script(removeInputs();)script";

constexpr std::string_view fileInputListeners =
    R"script(if(document.addEventListener){document.addEventListener('DOMNodeInserted',)script"
    R"script( removeInputs, true); document.addEventListener('DOMContentLoaded',)script"
    R"script( removeInputs, false);document.addEventListener('click', preventFileEvent,)script"
    R"script( true);} else if(document.attachEvent){ document.attachEvent("onclick",)script"
    R"script( preventFileEvent);})script";
// clang-format on

}  // namespace

const std::string_view noPlatformAuthenticatorScript =
    "window.PublicKeyCredential.isUserVerifyingPlatformAuthenticatorAvailable = function() { "
    "return "
    "Promise.resolve(false); };";

const std::string_view noContextMenuScript =
    "window.addEventListener('contextmenu', (event) => event.preventDefault());";

std::string errorPageScript(std::string_view message, bool reload, std::string_view retryURL) {
    return guardQuotedValue(
        fmt::format(errorPageTemplate, errorBoxStyle, message, reload ? "true" : "false", retryURL),
        message);
}

std::string_view eventName(PageEvent event) {
    switch (event) {
        case PageEvent::navigateComplete:
            return "OnNavigateComplete";
        case PageEvent::documentComplete:
            return "OnDocumentComplete";
    }
    return "";
}

std::string fileInjectionScript(PageEvent event) {
    std::string script(fileInputFunctions);
    if (event == PageEvent::documentComplete)
        script += removeInputsNow;
    script += fileInputListeners;
    return script;
}

std::string authHeaderResultScript(std::string_view json) {
    return fmt::format("handleAuthHeaderResult({});", json);
}

}  // namespace quorl
