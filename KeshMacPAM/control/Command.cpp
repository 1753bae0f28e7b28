#include "Command.h"

#include "Value.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>

namespace quorl::control {

int misused(const Command& command, std::string_view why) {
    fmt::print(stderr, "keshctl {}: {}\n{}", command.name, why, command.usage);
    return exitUsage;
}

int failed(const std::string& sentence, int status) {
    std::fflush(stdout);
    const std::string line = "keshctl: " + sentence;
    fmt::print(stderr, "{}\n", isatty(STDERR_FILENO) != 0 ? wrapped(line, 0) : line);
    return status;
}

void say(const std::string& line) {
    fmt::print("{}\n", line);
}

void tell(const std::string& text) {
    say(wrapped(text, 0));
}

std::string shown(std::string_view text) {
    return escapeControl(text);
}

std::string wrapped(std::string_view text, std::size_t indent) {
    constexpr std::size_t columns = 79;
    std::string lines;
    std::size_t column = indent;
    for (const std::string& word : wordsOf(text)) {
        if (column > indent && column + 1 + word.size() > columns) {
            lines += "\n" + std::string(indent, ' ');
            column = indent;
        }
        lines += column > indent ? " " + word : word;
        column += word.size() + (column > indent);
    }
    return lines;
}

void noteInJournal(const std::string& what) {
    const char* sudoer = secure_getenv("SUDO_USER");
    openlog("keshctl", LOG_PID, LOG_AUTHPRIV);
    syslog(LOG_NOTICE, "%s (by uid %d%s%s)", shown(what).c_str(), static_cast<int>(getuid()),
           sudoer ? ", through sudo by " : "", sudoer ? shown(sudoer).c_str() : "");
    closelog();
}

}  // namespace quorl::control
