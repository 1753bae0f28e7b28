#pragma once

#include "Handle.h"

#include <thread>

namespace quorl {

/// Standard output and standard error as the agent and the programs it starts see them, while it
/// lives: a pipe whose lines are escaped and logged, cut after 1,000 bytes. What a web page's
/// process writes thus reaches the log as its complaint, but cannot read, empty or forge the log.
/// Make it once the log is open, before a program is started that inherits them; afterwards both
/// streams are /dev/null. A thread of its own reads.
class StandardStreamsInLog {
  public:
    StandardStreamsInLog();
    ~StandardStreamsInLog();
    StandardStreamsInLog(const StandardStreamsInLog&) = delete;
    StandardStreamsInLog& operator=(const StandardStreamsInLog&) = delete;

  private:
    FileDescriptor pipe_;
    FileDescriptor end_;
    std::thread reader_;
};

}  // namespace quorl
