#include "OfflinePageScripts.h"

#include <fmt/format.h>

namespace quorl {
std::string timerScript(std::int64_t minutes, std::string_view line1, std::string_view line2) {
    return fmt::format(
        "var minutes = {}; var seconds = 60; function sessionTimeOut() {{seconds--;"
        "if (minutes > 0) {{var format = '';format = (\"0\" + (minutes - 1)).slice(-2);"
        "format += \":\";format += (\"0\" + seconds).slice(-2);"
        "if (seconds == 0) {{minutes--;seconds = 60;}}"
        "document.getElementById(\"timer\").innerHTML = format;}}"
        "else {{clearInterval(self.interval);"
        "addClass(document.getElementById(\"AUTHTAB\"),\"hide\");"
        "addClass(document.getElementById(\"CHOOSETAB\"),\"hide\");"
        "addClass(document.getElementById(\"ALERT\"),\"hide\");"
        "removeClass(document.getElementById(\"ERRORTAB\"),\"hide\");"
        "document.getElementById(\"ERRORMSG1\").innerHTML =\" {} \";"
        "document.getElementById(\"ERRORMSG2\").innerHTML =\" {} \";"
        "addClass(document.getElementById(\"TIMERDIV\"),\"hide\");"
        "document.getElementById(\"Exit\").focus();}}}}setInterval(sessionTimeOut, 1000);",
        minutes, line1, line2);
}

std::string limitWarningScript() {
    return "addClass(document.getElementById(\"LIMIT_VALUE\"), \"text-danger\");";
}

std::string focusScript(std::int64_t digits) {
    return fmt::format(
        "document.getElementById(\"PASSCODE\").focus(); "
        "document.getElementById(\"PASSCODE\").setAttribute(\"maxlength\",{} );",
        digits);
}

std::string chooseRow(std::string_view name, std::int64_t authId, RowPlace place) {
    const bool first = place == RowPlace::first;
    return fmt::format(
        "<div class = \"krl-mb-12\"> <label class = \"radio-inline\" onclick=\"iradio()\">"
        "<div class=\"iradio_minimal{}\">"
        "<input type = \"radio\" name=\"auth\" value=\"{}\" "
        "style=\"position: absolute; opacity : 0;\"{}></div>{}</label></div>",
        first ? " checked " : "", authId, first ? " checked autofocus" : "", name);
}

std::string staticTextsScript(const Value& texts) {
    return "var i18nText = " + texts.dump(-1, ' ', false, Value::error_handler_t::replace) +
           ";loadResources();";
}

std::string helpScript(std::string_view label, std::string_view text) {
    const Value help = {{"label", label}, {"text", text}};
    return "setHelp(" + help.dump(-1, ' ', false, Value::error_handler_t::replace) + ");";
}

std::string replaceAll(std::string text, std::string_view placeholder, std::string_view value) {
    for (auto at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + value.size()))
        text.replace(at, placeholder.size(), value);
    return text;
}

}  // namespace quorl
