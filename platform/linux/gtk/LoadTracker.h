#pragma once

#include <deque>
#include <string>

namespace quorl {

/// Makes sense of the engine's stream of load events: which belong to the load that was asked for
/// last, which to one that it replaced, which to a step that only prepares it. The engine names
/// none of them; but it asks for one policy decision per load that is handed to it, in order, and
/// what starts next is the load that was decided last. Pure; the caller delivers what it says.
class LoadTracker {
  public:
    enum class Purpose {
        page,
        form,     ///< a page with a body: its first attempt may fail and be repeated by the engine
        prelude,  ///< an empty page of the target's origin, before a form
        warmUp,   ///< an empty page that nobody asked for
    };
    enum class Policy { ask, allow, ignore };
    enum class Report {
        nothing,
        started,
        committed,
        finished,
        preludeOver,        ///< hand the form to the engine now
        cancelled,          ///< failed before commit: stopped or replaced
        failed,             ///< failed before commit: the error counts
        failedAfterCommit,  ///< the error counts
        unexplained,        ///< cancelled, perhaps by a load that follows at once; see givenUp()
    };
    enum class Failure { cancellation, refusal, other };

    /// A load of ours begins; everything earlier is history.
    void requested();
    /// That load, or its prelude, is handed to the engine under this URL.
    void expect(const std::string& url, Purpose purpose);
    /// We stop whatever is loading. A load that has not started yet ends without a word.
    void stopped();

    struct Action {
        bool resubmitsForm = false;
        bool isRedirect = false;
    };
    /// The engine asks whether to go to the URL (in any frame). While a load of ours is awaited,
    /// whatever a page begins beside it is ignored.
    Policy navigationAction(const std::string& url, Action action);
    /// The delegate refused what was asked about. The engine says nothing more about it, unless it
    /// was a redirect.
    void refused(bool isRedirect);
    /// True once after an unexplained cancellation: a load that follows now explains it.
    bool takeUnexplained();
    /// Instead of giving up, the same load is handed to the engine once more, and nobody is told.
    void repeat();
    /// Nothing followed an unexplained cancellation: the engine gave up by itself.
    void givenUp();

    Report started();
    Report committed(const std::string& url);
    Report finished();
    Report failure(Failure kind, bool afterCommit);
    /// The process that draws pages died, or a load was given up for good.
    void reset();

    /// A load of ours has been asked for and has not committed: what pages say until then comes
    /// from the page before.
    bool awaitsOwnPage() const { return own_ && phase_ != Phase::committed; }
    bool awaitsStart() const { return superseded(); }
    /// A page is on its way, and its start has been told.
    bool underway() const { return phase_ == Phase::provisional && !prepares(); }
    /// The view shows, or is about to show, an empty page that nobody asked for.
    bool preparing() const {
        return superseded() || (awaitsCommit() && prepares()) || purpose_ == Purpose::warmUp;
    }
    bool awaitsCommit() const { return phase_ != Phase::committed && phase_ != Phase::idle; }

  private:
    enum class Phase { idle, requested, decided, provisional, committed };
    struct Expected {
        std::string url;
        Purpose purpose;
    };

    bool prepares() const { return purpose_ == Purpose::prelude || purpose_ == Purpose::warmUp; }
    void end();
    Report ended(Report report);
    /// Events belong to a load that is history.
    bool superseded() const { return phase_ == Phase::requested || phase_ == Phase::decided; }

    Phase phase_ = Phase::idle;
    Purpose purpose_ = Purpose::page;
    bool own_ = false;
    bool stopped_ = false;
    bool refused_ = false;     ///< the delegate refused a redirect of the running load
    bool retrying_ = false;    ///< the first attempt of a form has failed
    bool repeating_ = false;   ///< the same load once more, allowed already
    bool startTold_ = false;   ///< the second attempt starts what has started already
    bool swallowEnd_ = false;  ///< "finished" follows each failure
    bool unexplained_ = false;
    std::string target_;  ///< where the load was last allowed to go
    std::deque<Expected> expected_;
};

}  // namespace quorl
