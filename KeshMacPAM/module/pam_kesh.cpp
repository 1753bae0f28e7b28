#define PAM_SM_AUTH
#define PAM_SM_ACCOUNT
#define PAM_SM_SESSION
#define PAM_SM_PASSWORD

#include "Attempt.h"
#include "Exemptions.h"
#include "Grant.h"
#include "Options.h"
#include "Paths.h"
#include "Texts.h"

#include <security/pam_ext.h>
#include <security/pam_modules.h>
#include <security/pam_modutil.h>
#include <syslog.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#define KESH_ENTRY extern "C" __attribute__((visibility("default")))

namespace quorl::pam {
namespace {

std::string_view item(pam_handle_t* pamh, int which) {
    const void* value = nullptr;
    if (pam_get_item(pamh, which, &value) != PAM_SUCCESS || !value)
        return {};
    return static_cast<const char*>(value);
}

/// The locale of this sign-in's messages, as the environment has it.
std::string_view locale() {
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"})
        if (const char* value = getenv(name); value && *value)
            return isLocale(value) ? value : std::string_view();
    return {};
}

Options readOptions(pam_handle_t* pamh, std::string_view service, int argc, const char** argv) {
    Options options;
    if (readOptionsFile(KESH_OPTIONS_FILE, service, options) == OptionsFile::Refused)
        pam_syslog(pamh, LOG_WARNING,
                   "%s is not a file that root alone can write: its options are not used",
                   KESH_OPTIONS_FILE);
    for (int i = 0; i < argc; ++i)
        applySetting(argv[i], service, options);
    if (!options.ignored.empty())
        pam_syslog(pamh, LOG_WARNING, "options that mean nothing here: %s",
                   options.ignored.c_str());
    return options;
}

/// Why the user is not asked; null when the second factor is owed. What is looked at comes from the
/// machine's own files first: root's way in waits for no name service.
const char* exemption(pam_handle_t* pamh, const char* user, const Options& options) {
    const auto account = localAccount(user, {KESH_PASSWD, KESH_SHADOW});
    const bool isRoot = account && account->uid == 0;
    if (isRoot && options.root == Asked::Exempt)
        return "root";
    if (breakGlass(KESH_BREAKGLASS, std::chrono::seconds(time(nullptr))))
        return "break-glass is running";
    if (!account || isRoot || !account->hasHash || options.local == Asked::Require)
        return nullptr;
    // Where a directory comes before the local files, the name can be somebody else's.
    const passwd* resolved = pam_modutil_getpwnam(pamh, user);
    return resolved && resolved->pw_uid == account->uid ? "local account" : nullptr;
}

/// What a line of the journal or a packet may carry of an item that the other side of a connection
/// chose.
std::string_view plain(std::string_view text) {
    constexpr std::size_t longest = 255;
    if (text.size() > longest)
        return {};
    for (const char c : text)
        if (c < 0x20 || c > 0x7e)
            return {};
    return text;
}

int statusOf(verifier::Verdict verdict) {
    switch (verdict) {
        case verifier::Verdict::Granted:
            return PAM_SUCCESS;
        case verifier::Verdict::Denied:
            return PAM_AUTH_ERR;
        case verifier::Verdict::DeniedMaxTries:
            return PAM_MAXTRIES;
        case verifier::Verdict::Ignore:
            return PAM_IGNORE;
    }
    return PAM_AUTH_ERR;
}

void logDenial(pam_handle_t* pamh, const char* user, const Outcome& outcome) {
    if (outcome.error != 0)
        pam_syslog(pamh, LOG_ERR, "user %s denied: %s: %s: %s", user, outcome.reason, KESH_HELPER,
                   strerror(outcome.error));
    else
        pam_syslog(pamh, LOG_ERR, "user %s denied: %s", user, outcome.reason);
}

Outcome playAttempt(HelperProcess& helper, const Conversation& conversation,
                    const verifier::Start& start) {
    if (start.left <= Milliseconds::zero())
        return {.verdict = {}, .reason = "the host's time runs out", .late = true};
    if (const int error = helper.start(KESH_HELPER))
        return {.verdict = {}, .reason = "the helper could not be started", .error = error};
    return Attempt(helper, conversation, start.left).play(start);
}

int verify(pam_handle_t* pamh, int flags, const char* user, const Options& options) {
    const verifier::Start start{.service = item(pamh, PAM_SERVICE),
                                .user = user,
                                .tty = plain(item(pamh, PAM_TTY)),
                                .rhost = plain(item(pamh, PAM_RHOST)),
                                .language = locale(),
                                .page = options.page.view(),
                                .mode = options.effectiveMode(),
                                .key = options.key,
                                .echo = options.echo,
                                .left = timeLimit(options.timeout, item(pamh, PAM_SERVICE))};
    const Conversation conversation(pamh, (flags & PAM_SILENT) != 0);
    HelperProcess helper;
    const Outcome outcome = playAttempt(helper, conversation, start);
    if (outcome.verdict) {
        helper.release();
        if (options.debug)
            pam_syslog(pamh, LOG_DEBUG, "user %s: verdict %d", user,
                       static_cast<int>(*outcome.verdict));
        if (*outcome.verdict == verifier::Verdict::Granted)
            rememberGrant(pamh, user);
        return statusOf(*outcome.verdict);
    }
    helper.end();
    logDenial(pamh, user, outcome);
    // Greeters swallow the texts of a denial, so the reason is one last prompt.
    if (!outcome.speechless)
        conversation.ask(textFor(outcome.late ? Text::TooLate : Text::CannotVerify, locale()),
                         true);
    return PAM_AUTH_ERR;
}

int authenticate(pam_handle_t* pamh, int flags, int argc, const char** argv) {
    const std::string_view service = item(pamh, PAM_SERVICE);
    const Options options = readOptions(pamh, service, argc, argv);
    // A screen locker, which could not end its own user's session over a forgotten telephone.
    const bool unprivileged = geteuid() != rulingUid();
    if (unprivileged || !listed(options.services.view(), service)) {
        if (options.debug || unprivileged)
            pam_syslog(
                pamh, LOG_INFO, "not asked: %s",
                unprivileged ? "the host does not run as root" : "the service is not listed");
        return PAM_IGNORE;
    }
    const char* user = nullptr;
    if (pam_get_user(pamh, &user, nullptr) != PAM_SUCCESS || !user || !plausibleName(user)) {
        pam_syslog(pamh, LOG_NOTICE, "denied: a name that no account can have (%zu bytes)",
                   user ? strlen(user) : 0);
        return PAM_AUTH_ERR;
    }
    if (const char* why = exemption(pamh, user, options)) {
        pam_syslog(pamh, LOG_INFO, "user %s not asked: %s", user, why);
        return PAM_IGNORE;
    }
    if (isGrantRemembered(pamh, user))
        return PAM_SUCCESS;
    return verify(pamh, flags, user, options);
}

}  // namespace
}  // namespace quorl::pam

KESH_ENTRY int pam_sm_authenticate(pam_handle_t* pamh, int flags, int argc, const char** argv) {
    return quorl::pam::authenticate(pamh, flags, argc, argv);
}

KESH_ENTRY int pam_sm_setcred(pam_handle_t*, int, int, const char**) {
    return PAM_SUCCESS;
}

KESH_ENTRY int pam_sm_acct_mgmt(pam_handle_t*, int, int, const char**) {
    return PAM_IGNORE;
}

KESH_ENTRY int pam_sm_open_session(pam_handle_t*, int, int, const char**) {
    return PAM_IGNORE;
}

KESH_ENTRY int pam_sm_close_session(pam_handle_t*, int, int, const char**) {
    return PAM_IGNORE;
}

KESH_ENTRY int pam_sm_chauthtok(pam_handle_t*, int, int, const char**) {
    return PAM_IGNORE;
}
