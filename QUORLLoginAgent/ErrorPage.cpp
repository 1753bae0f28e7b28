#include "ErrorPage.h"

#include "ErrorFrame.h"
#include "QuotedValue.h"

#include <fmt/format.h>

namespace quorl {
namespace {

// The texts of this script are prescribed to the letter, runs of blanks included.
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
// clang-format on

}  // namespace

void ErrorPage::show(ErrorKind kind, const std::string& text, bool reload) {
    webView_.stopLoading();
    loadBlankPage();
    kind_ = kind;
    text_ = text;
    reload_ = reload;
    webView_.setNeedsDisplay();
}

void ErrorPage::clear() {
    text_.clear();
    loadBlankPage();
}

void ErrorPage::loadBlankPage() {
    loading_ = true;
    drawn_ = false;
    webView_.loadRequest({.url = blankPage});
}

void ErrorPage::didLoad(std::string_view url) {
    if (url == blankPage)
        loading_ = false;
}

void ErrorPage::draw(std::string_view retryURL, const std::optional<std::string>& frameScript,
                     std::function<void(const std::string&)> tell) {
    drawn_ = true;
    if (frameScript)
        webView_.evaluateJavaScript(*frameScript, nullptr);
    webView_.evaluateJavaScript(errorPageScript(text_, reload_, retryURL), nullptr);
    if (frameScript)
        webView_.evaluateJavaScript(errorFrameShowScript,
                                    [tell = std::move(tell)](const ScriptResult& words) {
                                        if (words && *words)
                                            tell(**words);
                                    });
}

std::string errorPageScript(std::string_view message, bool reload, std::string_view retryURL) {
    return guardQuotedValue(
        fmt::format(errorPageTemplate, errorBoxStyle, message, reload ? "true" : "false", retryURL),
        message);
}

}  // namespace quorl
