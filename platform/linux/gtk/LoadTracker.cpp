#include "LoadTracker.h"

#include "WebView.h"

#include <algorithm>
#include <utility>

namespace quorl {

void LoadTracker::requested() {
    phase_ = Phase::requested;
    own_ = true;
    stopped_ = refused_ = retrying_ = repeating_ = startTold_ = unexplained_ = false;
}

void LoadTracker::expect(const std::string& url, Purpose purpose) {
    phase_ = Phase::requested;
    expected_.push_back({url, purpose});
}

void LoadTracker::stopped() {
    stopped_ = true;
    if (superseded()) {
        expected_.clear();
        end();
    }
}

LoadTracker::Policy LoadTracker::navigationAction(const std::string& url, Action action) {
    const auto found = std::ranges::find(expected_, url, &Expected::url);
    if (found != expected_.end()) {
        purpose_ = found->purpose;
        expected_.erase(expected_.begin(), found + 1);
        if (!expected_.empty())
            return Policy::ignore;
        phase_ = Phase::decided;
        target_ = url;
        if (prepares())
            return Policy::allow;
        startTold_ = std::exchange(repeating_, false);
        return startTold_ ? Policy::allow : Policy::ask;
    }
    if (action.resubmitsForm && std::exchange(retrying_, false)) {
        unexplained_ = false;
        startTold_ = true;
        phase_ = Phase::decided;
        return Policy::allow;
    }
    if (awaitsOwnPage() && !action.isRedirect)
        return Policy::ignore;
    if (!superseded())
        target_ = url;
    return Policy::ask;
}

void LoadTracker::refused(bool isRedirect) {
    if (isRedirect)
        refused_ = true;
    else if (phase_ == Phase::decided)
        end();
}

bool LoadTracker::takeUnexplained() {
    return std::exchange(unexplained_, false);
}

void LoadTracker::repeat() {
    requested();
    repeating_ = true;
}

void LoadTracker::givenUp() {
    unexplained_ = false;
    end();
}

LoadTracker::Report LoadTracker::started() {
    swallowEnd_ = false;
    if (phase_ == Phase::requested)
        return Report::nothing;
    const bool ours = phase_ == Phase::decided;
    phase_ = Phase::provisional;
    if (!ours) {
        own_ = stopped_ = refused_ = false;
        purpose_ = Purpose::page;
    }
    if (prepares() || std::exchange(startTold_, false))
        return Report::nothing;
    return Report::started;
}

LoadTracker::Report LoadTracker::committed(const std::string& url) {
    if (superseded())
        return Report::nothing;
    phase_ = Phase::committed;
    if (prepares())
        return Report::nothing;
    // A page that may not be asked for (a port that no page is served on) leaves a blank one
    // without a word.
    if (url == blankPage && !isBlankPage(target_)) {
        swallowEnd_ = true;
        return ended(Report::failed);
    }
    return Report::committed;
}

LoadTracker::Report LoadTracker::finished() {
    if (std::exchange(swallowEnd_, false) || superseded() || phase_ != Phase::committed)
        return Report::nothing;
    if (purpose_ == Purpose::warmUp)
        return Report::nothing;
    return purpose_ == Purpose::prelude ? Report::preludeOver : Report::finished;
}

LoadTracker::Report LoadTracker::failure(Failure kind, bool afterCommit) {
    swallowEnd_ = true;
    if (superseded())
        return kind == Failure::cancellation && !afterCommit ? Report::cancelled : Report::nothing;
    if (purpose_ == Purpose::prelude && phase_ != Phase::idle)
        return Report::preludeOver;
    if (purpose_ == Purpose::warmUp)
        return ended(Report::nothing);
    if (afterCommit)
        return Report::failedAfterCommit;
    switch (kind) {
        case Failure::cancellation:
            if (stopped_)
                return ended(Report::cancelled);
            retrying_ = purpose_ == Purpose::form;
            unexplained_ = true;
            return Report::unexplained;
        case Failure::refusal:
            return ended(refused_ ? Report::cancelled : Report::failed);
        case Failure::other:
            return ended(Report::failed);
    }
    return Report::nothing;
}

void LoadTracker::end() {
    phase_ = Phase::idle;
    own_ = stopped_ = refused_ = retrying_ = repeating_ = startTold_ = false;
}

LoadTracker::Report LoadTracker::ended(Report report) {
    end();
    return report;
}

void LoadTracker::reset() {
    end();
    expected_.clear();
    unexplained_ = swallowEnd_ = false;
}

}  // namespace quorl
