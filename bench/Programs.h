#pragma once

#include "AgentStage.h"
#include "Handle.h"
#include "Value.h"

#include <memory>
#include <string>

namespace quorl::bench {

/// Milliseconds since some fixed moment.
double milliseconds();

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

/// The minimal browser, told what to do over its standard input.
class MinimalBrowser {
  public:
    explicit MinimalBrowser(test::AgentStage& stage);
    void say(const std::string& line);
    /// Waits until the word was printed once more than before.
    void await(const std::string& word);
    pid_t pid() const { return process_->pid(); }

  private:
    std::string output_;
    std::string input_;
    FileDescriptor writer_;
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
