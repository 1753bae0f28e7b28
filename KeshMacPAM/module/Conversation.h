#pragma once

#include "VerifierProtocol.h"

#include <security/pam_modules.h>

#include <string_view>

namespace quorl::pam {

/// What a prompt brought back. Its text is wiped when this goes.
class Response {
  public:
    Response(verifier::Answer answer, char* text) : answer_(answer), text_(text) {}
    Response(Response&& other) noexcept : answer_(other.answer_), text_(other.text_) {
        other.text_ = nullptr;
    }
    Response& operator=(Response&&) = delete;
    ~Response();

    verifier::Answer answer() const { return answer_; }
    std::string_view text() const { return text_ ? std::string_view(text_) : std::string_view(); }

  private:
    verifier::Answer answer_;
    char* text_;
};

/// The host's conversation function, which can be missing, fail, take for ever or hand back
/// anything.
class Conversation {
  public:
    Conversation(pam_handle_t* pamh, bool silent) : pamh_(pamh), silent_(silent) {}

    /// Asks, and tells the password that the host has just verified from anything else typed.
    Response ask(std::string_view text, bool hidden) const;
    void say(std::string_view text, bool error) const;

  private:
    bool isPassword(std::string_view text) const;

    pam_handle_t* pamh_;
    bool silent_;
};

}  // namespace quorl::pam
