#pragma once

#include "AgentStage.h"
#include "Handle.h"
#include "Value.h"

#include <functional>

namespace quorl::bench {

/// Waits until a cleared window is at rest and the next page's process waits for it; each time a
/// little longer, so that what follows meets the screen's frames at every phase.
void settle();

/// Sends a request to the agent of this process's folders, waits for its answer, and gives that; a
/// program of its own would add its start.
Value ask(const Value& request);

/// Serves "/painted": a page that answers with success once its second frame is on the screen.
void serveThePage(test::AgentStage& stage);

/// Configures a registered machine on which the user is enrolled for logons without the server.
void enroll(test::AgentStage& stage, const std::string& user);

/// Has the agent let the user pass without the server; gives the moment of its answer.
double askOffline(const std::string& user);

/// The moment at which the offline page takes keys, and the nanoseconds from Return on the right
/// code to the end; the start of the program that presses it is included.
struct OfflinePage {
    double ready;
    double verdict;
};
/// Passes the page that `run` asks for; it gives the moment of its end.
OfflinePage passOffline(test::AgentStage& stage, const std::function<double()>& run);

/// A named pipe, open for both ends, so that no opening waits for the other one.
FileDescriptor makePipe(const std::string& path);

/// Follows a file as it grows, woken by each line, from the present end on; the file exists.
class LineReader {
  public:
    explicit LineReader(const std::string& path);
    /// Reads up to a line that holds the text; ends the program when none comes within 20 s.
    void await(const std::string& text);

  private:
    std::ifstream file_;
    FileDescriptor changes_;
};

/// A resident program that shows pages and does nothing else.
class MinimalBrowser {
  public:
    explicit MinimalBrowser(test::AgentStage& stage);
    /// Nanoseconds from the command to the line that holds the text.
    double time(const std::string& command, const std::string& text);
    /// Hides the window, and waits until it is as blank as it was.
    void hide() { time("hide", "finished about:blank"); }
    /// Has shown a blank page from now on.
    void prepare() { time("about:blank", "finished about:blank"), hide(); }
    pid_t pid() const { return process_->pid(); }

  private:
    FileDescriptor input_;
    std::unique_ptr<LineReader> lines_;
    std::unique_ptr<test::Subprocess> process_;
};

}  // namespace quorl::bench
