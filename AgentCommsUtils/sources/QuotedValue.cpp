#include "QuotedValue.h"

namespace quorl {

std::string guardQuotedValue(std::string script, std::string_view value) {
    // A literal that is never closed, on a line of its own: whatever the value may open (a comment,
    // a template) swallows it only by staying open itself, and both are syntax errors. Escapes in
    // the value need no guard: without a quote they stay inside the literal or leave it open.
    if (value.find('\'') != value.npos)
        script += "\n'";
    return script;
}

}  // namespace quorl
