#include "Conversation.h"

#include <security/pam_ext.h>

#include <cstdlib>
#include <cstring>

namespace quorl::pam {
namespace {

// Nobody types more as a code; what is longer is not looked at.
constexpr std::size_t longestReply = 1024;

}  // namespace

Response::~Response() {
    if (text_)
        explicit_bzero(text_, std::strlen(text_));
    std::free(text_);
}

Response Conversation::ask(std::string_view text, bool hidden) const {
    char* typed = nullptr;
    const int style = hidden ? PAM_PROMPT_ECHO_OFF : PAM_PROMPT_ECHO_ON;
    const int status =
        pam_prompt(pamh_, style, &typed, "%.*s", static_cast<int>(text.size()), text.data());
    if (status != PAM_SUCCESS || !typed || std::strlen(typed) > longestReply)
        return {verifier::Answer::None, typed};
    return {isPassword(typed) ? verifier::Answer::Password : verifier::Answer::Typed, typed};
}

void Conversation::say(std::string_view text, bool error) const {
    if (silent_)
        return;
    const int style = error ? PAM_ERROR_MSG : PAM_TEXT_INFO;
    pam_prompt(pamh_, style, nullptr, "%.*s", static_cast<int>(text.size()), text.data());
}

bool Conversation::isPassword(std::string_view text) const {
    const void* password = nullptr;
    return !text.empty() && pam_get_item(pamh_, PAM_AUTHTOK, &password) == PAM_SUCCESS &&
           password && text == static_cast<const char*>(password);
}

}  // namespace quorl::pam
