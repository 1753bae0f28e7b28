#pragma once

#include "AgentStage.h"
#include "Handle.h"
#include "Value.h"

#include <memory>
#include <string>

namespace quorl::bench {

/// Milliseconds since some fixed moment.
double milliseconds();

/// Waits until a cleared window is at rest; each time a little longer, so that what follows meets
/// the screen's frames at every phase.
void settle();

/// A client of the agent's channel in this process: a program of its own would add its start.
class ChannelClient {
  public:
    explicit ChannelClient(const test::AgentStage& stage);
    void send(const Value& request);
    /// The answer to the request sent last; null when none came within 20 s.
    Value answer();

  private:
    std::string runtimeDir_;
    FileDescriptor replies_;
};

/// Follows the agent's log as it grows, woken by each line.
class LogReader {
  public:
    /// From the log's present end on; the log exists.
    explicit LogReader(const test::AgentStage& stage);
    /// Reads up to a line that holds the message, 20 s at most.
    void await(const std::string& message);

  private:
    FileDescriptor log_;
    FileDescriptor changes_;
    std::string unread_;
};

/// The minimal browser, told what to do over its standard input.
class MinimalBrowser {
  public:
    explicit MinimalBrowser(test::AgentStage& stage);
    void say(const std::string& line);
    /// Reads what it prints up to that line, 20 s at most.
    void await(const std::string& line);
    /// Hides the window, and waits until it is as blank as it was.
    void hide();
    pid_t pid() const { return process_->pid(); }

  private:
    FileDescriptor input_;
    FileDescriptor output_;
    std::string unread_;
    std::unique_ptr<test::Subprocess> process_;
};

/// What a process and all below it use.
struct Usage {
    int processes = 0;
    double memoryMiB = 0;  ///< anonymous and shared memory of the process itself
    double wakeups = 0;    ///< voluntary context switches of its threads so far
    double cpuMs = 0;      ///< processor time of its threads so far
};
Usage usageOf(pid_t pid);

}  // namespace quorl::bench
