#pragma once

#include <string>
#include <string_view>

namespace quorl {

/// One outcome for the journal. None of it holds a code or a key.
struct JournalEntry {
    std::string user;
    std::string service;
    std::string_view way;
    std::string_view outcome;
    std::string reason;
    bool warning = false;
};

/// Writes the outcome as one line to the system's journal (facility AUTHPRIV) and to the log.
void writeJournal(const JournalEntry& entry);

}  // namespace quorl
