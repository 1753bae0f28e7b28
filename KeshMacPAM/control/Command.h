#pragma once

#include "Machine.h"

#include <string>
#include <string_view>
#include <vector>

namespace quorl::control {

/// What keshctl's exit status says, where a command says nothing else of its own.
enum ExitStatus : int {
    exitDone = 0,
    exitFailed = 1,
    exitRefused = 2,  ///< nothing was changed, since it would do harm
    exitUsage = 64,
    exitNeedsRoot = 77,
};

using Words = std::vector<std::string>;

/// One command of keshctl: its words behind the command's name to an exit status.
struct Command {
    std::string_view name;
    std::string_view summary;
    std::string_view usage;
    bool rootOnly;
    int (*run)(const Machine& machine, const Words& words);
};

extern const Command setupCommand;
extern const Command enableCommand;
extern const Command disableCommand;
extern const Command statusCommand;
extern const Command doctorCommand;
extern const Command offlineCommand;
extern const Command unlockCommand;
extern const Command breakglassCommand;
extern const Command reportCommand;

/// Says on standard error that the words are no way to call the command, and gives exitUsage.
int misused(const Command& command, std::string_view why);

/// Says in one sentence on standard error what failed, and gives the status. One line, but where
/// somebody reads it at a terminal.
int failed(const std::string& sentence, int status = exitFailed);

/// A line to standard output.
void say(const std::string& line);

/// A text to standard output, in lines that fit a terminal of 80 columns.
void tell(const std::string& text);

/// A text for a terminal that came from elsewhere: one line, control characters escaped.
std::string shown(std::string_view text);

/// The words of a text in lines that end before the 80th column; each but the first is indented,
/// and the first begins at that column already.
std::string wrapped(std::string_view text, std::size_t indent);

/// A line to the system's journal (facility AUTHPRIV) with who called.
void noteInJournal(const std::string& what);

}  // namespace quorl::control
