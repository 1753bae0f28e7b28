#include "WebKitEngine.h"

#include "Lockdown.h"
#include "Log.h"
#include "SystemPaths.h"

#include <filesystem>
#include <string_view>

namespace quorl {
namespace {

constexpr const char* extensionFile = "libquorl-page-headers.so";

std::filesystem::path extensionFolder() {
    return std::filesystem::path(installationPrefix()) / "lib" / "QUORLLoginAgent" /
           "web-extension";
}

GObjectHandle<WebKitWebContext> makeContext(CertificatePolicy certificates) {
    const GObjectHandle<WebKitWebsiteDataManager> data(webkit_website_data_manager_new_ephemeral());
    webkit_website_data_manager_set_tls_errors_policy(
        data.get(), certificates == CertificatePolicy::allowAny ? WEBKIT_TLS_ERRORS_POLICY_IGNORE
                                                                : WEBKIT_TLS_ERRORS_POLICY_FAIL);
    GObjectHandle<WebKitWebContext> context(
        webkit_web_context_new_with_website_data_manager(data.get()));
    webkit_web_context_set_cache_model(context.get(), WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
    webkit_web_context_set_sandbox_enabled(context.get(), TRUE);
    webkit_cookie_manager_set_accept_policy(
        webkit_website_data_manager_get_cookie_manager(data.get()),
        WEBKIT_COOKIE_POLICY_ACCEPT_NO_THIRD_PARTY);
    // A login screen's services often run without a language, and "C" is none that a page knows.
    const char* language = g_get_language_names()[0];
    if (language == std::string_view("C") || language == std::string_view("C.UTF-8")) {
        const char* const languages[] = {"en", nullptr};
        webkit_web_context_set_preferred_languages(context.get(), languages);
    }
    return context;
}

}  // namespace

WebKitEngine::WebKitEngine(CertificatePolicy certificates, const std::string& channel)
    : channel_(channel), context_(makeContext(certificates)) {
    installExtension();
    makeView();
}

WebKitEngine::~WebKitEngine() {
    destroyView();
}

void WebKitEngine::endPage() {
    webkit_web_view_terminate_web_process(view_.get());
}

void WebKitEngine::renewView() {
    endPage();
    destroyView();
    makeView();
}

void WebKitEngine::makeView() {
    content_.reset(webkit_user_content_manager_new());
    Lockdown::addGuardScript(content_.get());
    const auto settings = Lockdown::settings();
    view_.reset(WEBKIT_WEB_VIEW(g_object_ref_sink(
        g_object_new(WEBKIT_TYPE_WEB_VIEW, "web-context", context_.get(), "user-content-manager",
                     content_.get(), "settings", settings.get(), nullptr))));
}

void WebKitEngine::destroyView() {
    for (const char* channel : {channel_.c_str(), readerChannel})
        webkit_user_content_manager_unregister_script_message_handler(content_.get(), channel);
    gtk_widget_destroy(GTK_WIDGET(view_.get()));
}

WebKitCookieManager* WebKitEngine::cookies() const {
    return webkit_web_context_get_cookie_manager(context_.get());
}

void WebKitEngine::installExtension() {
    const auto folder = extensionFolder();
    std::error_code error;
    if (!std::filesystem::exists(folder / extensionFile, error)) {
        logLine("WebKitEngine : {} is missing, headers of page requests are limited",
                (folder / extensionFile).string());
        return;
    }
    const GCharHandle secret(g_uuid_string_random());
    headersSecret_ = secret.get();
    webkit_web_context_set_web_extensions_directory(context_.get(), folder.c_str());
    webkit_web_context_set_web_extensions_initialization_user_data(
        context_.get(), g_variant_new_string(secret.get()));
}

}  // namespace quorl
