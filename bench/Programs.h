#pragma once

#include "AgentStage.h"
#include "Handle.h"
#include "Value.h"

#include <future>
#include <memory>
#include <string>

namespace quorl::bench {

/// Waits until a cleared window is at rest and the next page's process waits for it; each time a
/// little longer, so that what follows meets the screen's frames at every phase.
void settle();

/// Sends a request to the agent of this process's folders, waits for its answer, and gives that; a
/// program of its own would add its start.
Value ask(const Value& request);

/// Serves "/painted": a page that answers with success once its second frame is on the screen.
void serveThePage(test::AgentStage& stage);

/// The secret of the authenticator that enroll() gives.
inline constexpr const char* userSecret = "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP";
/// The machine's access key, in hexadecimal digits.
std::string accessKey();
/// Configures a registered machine on which the user is enrolled for logons without the server.
void enroll(test::AgentStage& stage, const std::string& user);

/// Nanoseconds from Return in the offline page, whose field the present code has been typed into,
/// to the moment that `ended` gives. The start of the program that presses it is included.
double untilEnded(test::AgentStage& stage, std::future<double> ended);

/// A named pipe, open for both ends, so that no opening waits for the other one.
FileDescriptor makePipe(const std::string& path);

/// Follows a file as it grows, woken by each line.
class LineReader {
  public:
    /// From the present end on; the file exists.
    explicit LineReader(const std::string& path);
    /// Of the agent's log.
    explicit LineReader(const test::AgentStage& stage)
        : LineReader(stage.sandbox.support() / "VantorixClient.log") {}
    /// Reads up to a line that holds the text; ends the program when none comes within 20 s.
    void await(const std::string& text);

  private:
    FileDescriptor file_;
    FileDescriptor changes_;
    std::string unread_;
};

/// The offline page takes keys once its last script has been handed over: right after this line.
inline constexpr const char* offlinePageReady =
    "MFAController:: didFinishNavigation : loading offline related content";

/// A resident program that shows pages and does nothing else.
class MinimalBrowser {
  public:
    explicit MinimalBrowser(test::AgentStage& stage);
    /// Nanoseconds from the command to the line that holds the text.
    double time(const std::string& command, const std::string& text);
    /// Hides the window, and waits until it is as blank as it was.
    void hide() { time("hide", "finished about:blank"); }
    pid_t pid() const { return process_->pid(); }

  private:
    std::string output_;
    FileDescriptor input_;
    std::unique_ptr<test::Subprocess> process_;
    std::unique_ptr<LineReader> lines_;
};

}  // namespace quorl::bench
