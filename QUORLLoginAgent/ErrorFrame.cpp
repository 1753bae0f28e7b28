#include "ErrorFrame.h"

#include "Localization.h"
#include "Log.h"
#include "WebView.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>

namespace quorl {
namespace {

std::string fileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string json(const Value& value) {
    return value.dump(-1, ' ', false, Value::error_handler_t::replace);
}

// How the message's element is marked: in whose language it is, and which way it runs.
Value messageMarks(ErrorKind kind) {
    if (errorWords(kind).messageIsEnglish)
        return {{"lang", "en"}, {"dir", "ltr"}};
    if (kind == ErrorKind::message)
        return {{"dir", "auto"}};
    return Value::object();
}

}  // namespace

Value errorFrameWords(const ErrorFrame& frame, const Resources& resources) {
    const auto text = [&](std::string_view key) {
        return key.empty() ? "" : getLocalizedString(key, frame.localeId, resources);
    };
    const ErrorWords words = errorWords(frame.kind);
    const std::string language = localizationName(frame.localeId, resources);
    Value buttons = Value::array();
    if (frame.offersRetry)
        buttons.push_back({{"label", text("IDS_RETRY")}, {"link", OwnLink::retry}});
    buttons.push_back({{"label", text("IDS_MFA_OFFLINE_HTML_T6")}, {"link", OwnLink::close}});
    Value all = {{"language", language},
                 {"messageIsDetail", words.messageIsEnglish},
                 {"direction", runsRightToLeft(language) ? "rtl" : "ltr"},
                 {"title", text(words.title)},
                 {"message", messageMarks(frame.kind)},
                 {"advice", text(words.advice)},
                 {"buttons", std::move(buttons)}};
    if (!frame.help.empty())
        all["help"] = {{"label", text("IDS_HELP_LABEL")}, {"text", frame.help}};
    else if (!words.messageNamesHelp)
        all["ask"] = text("IDS_ERROR_ASK");
    return all;
}

std::optional<std::string> errorFrameScript(const ErrorFrame& frame, const Resources& resources) {
    const auto looks = resources.pathForResource("resources/offlineMFA/OfflineMFA", "css");
    const auto ownLooks = resources.pathForResource("resources/errorPage/ErrorPage", "css");
    const auto script = resources.pathForResource("resources/errorPage/ErrorPage", "js");
    if (!looks || !ownLooks || !script) {
        logLine(
            "errorFrameScript : a file of the error page is missing, it shows its message alone");
        return std::nullopt;
    }
    return fmt::format("{}\ndrawErrorFrame({}, {});", fileText(*script),
                       json(errorFrameWords(frame, resources)),
                       json(fileText(*looks) + fileText(*ownLooks)));
}

}  // namespace quorl
