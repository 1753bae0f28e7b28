#include "Localization.h"

#include <stdlib.h>
#include <unicode/locid.h>

#include <optional>

namespace quorl {
namespace {

icu::Locale withLikelyScript(const icu::Locale& locale) {
    icu::Locale full(locale);
    UErrorCode status = U_ZERO_ERROR;
    full.addLikelySubtags(status);
    return full;
}

// The language of the table that serves a locale, in either form ("pt-BR", "pt_BR.UTF-8"): the one
// of that very name, else the nearest wider one in the same script ("pt"; "zh-CN" is served by
// "zh-Hans").
std::optional<std::string> localizationFor(std::string_view localeId, const Resources& resources) {
    if (resources.hasLocalization(localeId))
        return std::string(localeId);
    std::string tag(localeId.substr(0, localeId.find_first_of(".@")));
    for (char& c : tag)
        if (c == '_')
            c = '-';
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale asked = icu::Locale::forLanguageTag(tag, status);
    const std::string language = asked.getLanguage();
    if (U_FAILURE(status) || language.empty())
        return std::nullopt;
    const std::string region = asked.getCountry();
    const std::string script = withLikelyScript(asked).getScript();
    // A wider table in another script is no help: who reads one need not read the other.
    const bool isUsualScript =
        script == withLikelyScript(icu::Locale(language.c_str())).getScript();
    for (const std::string& name :
         {language + "-" + region, language + "-" + script, isUsualScript ? language : ""})
        if (resources.hasLocalization(name))
            return name;
    return std::nullopt;
}

// As the C library finds it for messages.
std::string systemLocale() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = getenv(variable);
        if (value && *value)
            return value;
    }
    return "";
}

// English for what a table lacks; an empty text counts as lacking.
std::string textIn(const std::optional<std::string>& language, std::string_view key,
                   const Resources& resources) {
    for (const std::string& table : {language.value_or("en"), std::string("en")}) {
        const auto text = resources.localizedString(key, table);
        if (text && !text->empty())
            return *text;
    }
    return std::string(key);
}

}  // namespace

std::string localizationName(std::string_view localeId, const Resources& resources) {
    for (const std::string& asked : {std::string(localeId), systemLocale()})
        if (const auto language = localizationFor(asked, resources))
            return *language;
    return "en";
}

bool runsRightToLeft(const std::string& language) {
    return icu::Locale(language.c_str()).isRightToLeft();
}

std::string getLocalizedString(std::string_view key, std::string_view localeId,
                               const Resources& resources) {
    const auto language = localizationFor(localeId, resources);
    return language ? textIn(language, key, resources) : getNSLocalizedString(key, resources);
}

std::string getNSLocalizedString(std::string_view key, const Resources& resources) {
    return textIn(localizationFor(systemLocale(), resources), key, resources);
}

}  // namespace quorl
