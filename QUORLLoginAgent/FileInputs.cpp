#include "FileInputs.h"

namespace quorl {
namespace {

// The texts of these scripts are prescribed to the letter, runs of blanks included.
// clang-format off
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

}  // namespace quorl
