#include "PamStack.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quorl::control {
namespace {

constexpr std::string_view folder = "/etc/pam.d/";
constexpr int deepestInclude = 8;

struct Expected {
    std::string_view control;
    std::string_view module;
    std::string_view arguments;
};
constexpr std::array<Expected, 4> ours = {
    {{"[success=3 ignore=3 module_unknown=ignore default=die]", "pam_kesh.so", ""},
     {"[success=2 default=ignore]", "pam_succeed_if.so", "quiet uid eq 0"},
     {"[success=1 default=ignore]", "pam_localuser.so", ""},
     {"requisite", "pam_deny.so", ""}}};

bool isOurs(const PamLine& line, std::size_t which) {
    const bool plain =
        which == 0 || fmt::format("{}", fmt::join(line.arguments, " ")) == ours[which].arguments;
    return plain && line.control == ours[which].control && line.module == ours[which].module;
}

std::string takeWord(std::string& rest) {
    rest = trimmed(rest);
    // A control in brackets holds blanks.
    const std::size_t bracket = rest.starts_with('[') ? rest.find(']') : rest.npos;
    const std::size_t end = bracket != rest.npos ? bracket + 1 : rest.find_first_of(" \t");
    const std::string word = rest.substr(0, end);
    rest = end >= rest.size() ? "" : rest.substr(end);
    return fmt::format("{}", fmt::join(wordsOf(word), " "));
}

/// One line of a file, its type first; a line that says nothing has no type.
struct Parsed {
    std::string type;
    PamLine line;
};

Parsed parse(const std::string& text, const std::string& file, int number) {
    std::string rest = text.substr(0, text.find('#'));
    Parsed parsed;
    parsed.line.file = file;
    parsed.line.number = number;
    parsed.type = takeWord(rest);
    if (parsed.type.starts_with('-'))
        parsed.type.erase(0, 1);
    parsed.line.control = parsed.type == "@include" ? "include" : takeWord(rest);
    const std::string module = takeWord(rest);
    parsed.line.module = module.substr(module.rfind('/') + 1);
    parsed.line.arguments = wordsOf(rest);
    return parsed;
}

void collect(const Machine& machine, const std::string& service, int depth, PamStack& stack) {
    if (depth > deepestInclude || service.empty() || service.find('/') != service.npos)
        return;
    int number = 0;
    for (const std::string& text : linesOf(machine.text(std::string(folder) + service))) {
        Parsed parsed = parse(text, std::string(folder) + service, ++number);
        if (parsed.type != "auth" && parsed.type != "@include")
            continue;
        const std::string& control = parsed.line.control;
        if (control == "include" || control == "substack")
            collect(machine, parsed.line.module, depth + 1, stack);
        else if (!parsed.line.module.empty())
            stack.push_back(std::move(parsed.line));
    }
}

std::string signature(const PamLine& line) {
    return line.module + " " + fmt::format("{}", fmt::join(line.arguments, " "));
}

}  // namespace

bool PamLine::sufficient() const {
    return control == "sufficient" || control.find("success=done") != control.npos;
}

PamStack authStack(const Machine& machine, const std::string& service) {
    PamStack stack;
    collect(machine, service, 0, stack);
    return stack;
}

std::optional<OurLines> ourLines(const PamStack& stack) {
    const auto first = std::find_if(stack.begin(), stack.end(), [](const PamLine& line) {
        return line.module == ours[0].module;
    });
    if (first == stack.end())
        return std::nullopt;
    const auto at = static_cast<std::size_t>(first - stack.begin());
    bool whole = at + ours.size() <= stack.size();
    for (std::size_t i = 0; whole && i < ours.size(); ++i)
        whole = isOurs(stack[at + i], i);
    return OurLines{at, whole};
}

std::optional<std::string> withoutOurLines(const std::string& text) {
    std::string kept;
    std::size_t next = ours.size();  // which of our lines may follow; past the last: none
    bool found = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
        const std::string line = text.substr(at, end - at);
        at = end;
        const Parsed parsed = parse(line, "", 0);
        const bool module = parsed.type == "auth" && parsed.line.module == ours[0].module;
        const bool follower =
            next < ours.size() && parsed.type == "auth" && isOurs(parsed.line, next);
        // Comments between them end nothing.
        if (module || !parsed.type.empty())
            next = module ? 1 : follower ? next + 1 : ours.size();
        found = found || module;
        if (!module && !follower)
            kept += line;
    }
    return found ? std::optional(kept) : std::nullopt;
}

std::vector<std::string> filesWithOurLines(const Machine& machine) {
    std::vector<std::string> files;
    for (const std::string& name : machine.names(folder)) {
        const std::string file = std::string(folder) + name;
        if (withoutOurLines(machine.text(file)))
            files.push_back(file);
    }
    return files;
}

std::optional<PamLine> handWrittenLine(const Machine& machine) {
    std::vector<std::string> known = {"pam_deny.so ", "pam_permit.so "};
    for (const std::string& name : machine.names("/usr/share/pam-configs"))
        for (const std::string& text : linesOf(machine.text("/usr/share/pam-configs/" + name)))
            // A profile's lines lack the type.
            known.push_back(signature(parse("auth " + trimmed(text), "", 0).line));
    for (PamLine& line : authStack(machine, "common-auth"))
        if (std::find(known.begin(), known.end(), signature(line)) == known.end())
            return std::move(line);
    return std::nullopt;
}

}  // namespace quorl::control
