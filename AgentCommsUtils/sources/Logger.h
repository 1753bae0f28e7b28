#pragma once

#include "Log.h"

#include <cstdio>
#include <string>

namespace quorl {

/// The log file's stream while the process-level log is open, else null. Lines go to a descriptor
/// of the log's own, which no other program inherits, and never through standard error.
extern std::FILE* pamLogFileP;

/// Rotates the log file at the path when it holds more than 10,000,000 bytes, then, unless the
/// process-level log is open already, opens it for appending (created with mode 0600). Lines go
/// there from then on, until the file holds ten times that size.
void initLog(const std::string& path);

/// Flushes and closes the process-level log; lines are lost until the next initLog. Gives the
/// result of closing, 0 on success.
int destroyLog();

/// The application's opener: the same rotation, then always an opening. Gives the stream, null
/// when the file cannot be opened: said once where lines went before, and then they go nowhere.
std::FILE* openApplicationLog(const std::string& path);

/// Flushes and closes what openApplicationLog gave.
void closeApplicationLog(std::FILE* stream);

}  // namespace quorl
