// Prints the scripts that draw the error page in the resources of the folder given: one JSON
// object, by language and view.
#include "ErrorFrame.h"
#include "ErrorPage.h"
#include "Localization.h"

#include <filesystem>
#include <iostream>

using namespace quorl;

int main(int, char** arguments) {
    const Resources resources(arguments[1]);
    const struct {
        const char* view;
        ErrorKind kind;
        const char* message;  // a key or a text; empty: the kind's own
        bool retry;
        const char* help;
    } views[] = {
        {"unreachable", ErrorKind::unreachable, "", true, ""},
        {"timed-out", ErrorKind::timedOut, "", true,
         "IT Service Desk: +43 1 555 0100\nRoom B 2.14"},
        {"not-configured", ErrorKind::notConfigured, "", false, ""},
        {"certificate", ErrorKind::certificate, "", false, ""},
        {"foreign", ErrorKind::foreignPage,
         "External URL is denied. Please contact the administrator.", false, ""},
        {"died", ErrorKind::pageDied, "", true, ""},
        {"limit", ErrorKind::limitReached, "IDS_MFA_ERROR_LIMIT_REACHED", false,
         "https://help.example.org/second-factor-with-a-very-long-address-that-must-break"},
        {"not-enrolled", ErrorKind::notEnrolled, "IDS_MFA_ERROR_NOT_ENROLLED", false, ""},
        {"message", ErrorKind::message, "Your account <b>is locked</b> until 14:30.", false, ""},
    };
    Value all;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
        if (entry.path().extension() != ".lproj")
            continue;
        const std::string language = entry.path().stem();
        for (const auto& [view, kind, message, retry, help] : views) {
            const std::string key = *message ? message : std::string(errorWords(kind).message);
            all[language][view] = {
                errorFrameScript({kind, retry, language, help}, resources).value(),
                errorPageScript(getLocalizedString(key, language, resources), false, ""),
                errorFrameShowScript};
        }
    }
    std::cout << all;
}
