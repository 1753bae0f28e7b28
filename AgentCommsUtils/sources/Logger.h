#pragma once

#include "Log.h"

#include <cstdio>
#include <string>

namespace quorl {

/// Standard error, reopened onto the log file by initLog; null while closed.
extern std::FILE* pamLogFileP;

/// Rotates the log file at the path when it holds more than 10,000,000 bytes, then, unless the
/// process-level log is open already, reopens standard error onto it (created with mode 0600).
void initLog(const std::string& path);

/// Flushes and closes the process-level log; lines are lost until the next initLog. Gives the
/// result of closing, 0 on success.
int destroyLog();

/// The application's opener: the same rotation, then always a reopening of standard error. Gives
/// the stream, null when the file cannot be opened (said once on the former standard error).
std::FILE* openApplicationLog(const std::string& path);

/// Flushes and closes what openApplicationLog gave.
void closeApplicationLog(std::FILE* stream);

}  // namespace quorl
