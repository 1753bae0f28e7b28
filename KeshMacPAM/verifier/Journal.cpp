#include "Journal.h"

#include "Log.h"
#include "Texts.h"

#include <fmt/format.h>
#include <syslog.h>

namespace quorl {

void writeJournal(const JournalEntry& entry) {
    const std::string line =
        fmt::format("user={} service={} way={} outcome={} reason={}", harmless(entry.user),
                    harmless(entry.service), entry.way, entry.outcome, harmless(entry.reason, 300));
    syslog(LOG_AUTHPRIV | (entry.warning ? LOG_WARNING : LOG_NOTICE), "%s", line.c_str());
    logLine("kesh-verify: {}", line);
}

}  // namespace quorl
