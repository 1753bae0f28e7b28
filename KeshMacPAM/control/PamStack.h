#pragma once

#include "Machine.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <vector>

namespace quorl::control {

/// A line of a file of /etc/pam.d that names a module for authentication.
struct PamLine {
    std::string file;
    int number = 0;
    std::string control;  ///< "requisite", or "[success=1 default=ignore]" with single blanks
    std::string module;   ///< without its folder: "pam_unix.so"
    std::vector<std::string> arguments;

    std::string place() const { return file + ":" + std::to_string(number); }
    bool sufficient() const;
};
using PamStack = std::vector<PamLine>;

/// The lines that a service's authentication goes through, what it includes in its place.
PamStack authStack(const Machine& machine, const std::string& service);

/// Where our four lines stand in the stack, each as it must be and in order.
struct OurLines {
    std::size_t first;
    bool whole;
};
std::optional<OurLines> ourLines(const PamStack& stack);

/// The file's text without our lines, everything else byte for byte; nothing where it has none.
std::optional<std::string> withoutOurLines(const std::string& text);

/// The files of /etc/pam.d that name our module.
std::vector<std::string> filesWithOurLines(const Machine& machine);

/// The first line of common-auth that neither the template nor an installed profile has: why
/// pam-auth-update leaves the file alone. Nothing where all lines are known.
std::optional<PamLine> handWrittenLine(const Machine& machine);

}  // namespace quorl::control
