#include "OfflinePageScripts.h"

#include "EnrollmentHandler.h"

#include <fmt/format.h>

#include <limits>

namespace quorl {
namespace {

// Records may hold any number, so a difference is held within 64 bits.
std::int64_t difference(std::int64_t from, std::int64_t subtrahend) {
    std::int64_t result = 0;
    if (__builtin_sub_overflow(from, subtrahend, &result))
        return subtrahend < 0 ? std::numeric_limits<std::int64_t>::max()
                              : std::numeric_limits<std::int64_t>::min();
    return result;
}

}  // namespace

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

LimitNotice limitNotice(const OfflineLimit& limit, std::chrono::seconds now) {
    constexpr std::int64_t secondsOfDay = 86400;
    constexpr std::int64_t fewAttempts = 5;
    constexpr std::int64_t fewDays = 3;
    LimitNotice notice;
    if (limit.type == limitAttempts) {
        notice.labelKey = "IDS_MFA_OFFLINE_LIMIT_ATTEMPTS";
        notice.remaining = difference(limit.limit, limit.validUserAttempts);
        notice.low = notice.remaining <= fewAttempts;
    } else if (limit.type == limitDays) {
        notice.labelKey = "IDS_MFA_OFFLINE_LIMIT_DAYS";
        notice.remaining = difference(
            limit.limit, difference(now.count(), limit.lastOnlineMfaTime) / secondsOfDay);
        notice.low = notice.remaining <= fewDays;
    }
    return notice;
}

std::string replaceAll(std::string text, std::string_view placeholder, std::string_view value) {
    for (auto at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + value.size()))
        text.replace(at, placeholder.size(), value);
    return text;
}

}  // namespace quorl
