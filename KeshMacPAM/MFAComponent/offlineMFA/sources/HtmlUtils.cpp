#include "HtmlUtils.h"

#include "Log.h"
#include "QuotedValue.h"
#include "Utf8.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>

namespace quorl {

HtmlUtils::HtmlUtils(WebView& webView, BrowserWindow& window, const Resources& resources)
    : webView_(webView), browserWindow_(window), resources_(resources) {}

void HtmlUtils::setValueAttribute(std::string_view id, std::string_view value) {
    executeScript(guardQuotedValue(
        fmt::format("document.getElementById('{}').value='{}';", id, value), value));
}

void HtmlUtils::setSrcAttribute(std::string_view id, std::string_view value) {
    executeScript(
        guardQuotedValue(fmt::format("document.getElementById('{}').src='{}';", id, value), value));
}

void HtmlUtils::putInnerHtml(std::string_view id, std::string_view html) {
    executeScript(guardQuotedValue(
        fmt::format("document.getElementById('{}').innerHTML = '{}';", id, html), html));
}

void HtmlUtils::removeAttribute(std::string_view id, std::string_view attribute) {
    executeScript(
        fmt::format("document.getElementById('{}').removeAttribute('{}');", id, attribute));
}

void HtmlUtils::insertAdjacentHTML(std::string_view id, std::string_view where,
                                   std::string_view html) {
    executeScript(guardQuotedValue(
        fmt::format("document.getElementById('{}').insertAdjacentHTML('{}', '{}');", id, where,
                    html),
        html));
}

void HtmlUtils::radioSelected(std::string_view group,
                              std::function<void(std::optional<std::string>)> completion) {
    if (!attached_) {
        completion(std::nullopt);
        return;
    }
    webView_.evaluateJavaScript(
        fmt::format("document.querySelector('input[name=\"{}\"]:checked').value;", group),
        [completion = std::move(completion)](ScriptResult result) {
            if (!result) {
                logLine("HtmlUtil::executeScript: script execution failed, ERROR - {}",
                        result.error());
                completion(std::nullopt);
                return;
            }
            completion(*result);
        });
}

void HtmlUtils::executeScript(const std::string& script) {
    if (!attached_)
        return;
    webView_.evaluateJavaScript(script, [](const ScriptResult& result) {
        if (!result)
            logLine("HtmlUtil::executeScript: script execution failed with error: {}",
                    result.error());
    });
}

void HtmlUtils::loadFromResource(std::string_view name, std::string_view type) {
    if (!attached_)
        return;
    const std::optional<std::string> path = resources_.pathForResource(name, type);
    logLine("HtmlUtil::loadFromResource: resource path : {}", path);
    if (!path) {
        logLine(
            "HtmlUtil::loadFromResource: resource file not found - resourceName : {} , type: {}",
            std::string(name), std::string(type));
        return;
    }
    webView_.loadFile(*path);
    webView_.setAllowsBackForwardNavigationGestures(false);
}

void HtmlUtils::closeWindow() {
    if (attached_)
        browserWindow_.close();
}

std::string HtmlUtils::getStringFromResource(std::string_view name, std::string_view type) const {
    const std::optional<std::string> path = resources_.pathForResource(name, type);
    if (!path)
        return "";
    std::ifstream file(*path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    return file.bad() || !isUtf8(text) ? "" : text;
}

}  // namespace quorl
