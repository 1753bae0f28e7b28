#pragma once

#include "AgentChannel.h"
#include "KeyedArchive.h"
#include "LinuxPortSystem.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace quorl::test {

/// An agent of the test's own: it keeps each request and answers as it is told.
class FakeAgent {
  public:
    /// Gives the answer; nothing drops the request, null keeps it for ever.
    using Behaviour = std::function<std::optional<Value>(const Value& request)>;

    FakeAgent(const std::string& runtimeDir, Behaviour behaviour)
        : ports_(runtimeDir, {.ownAccount = true}),
          loop_(ports_.makeRunLoop()),
          service_(ports_.servicePortWithName(bootstrapName)) {
        service_->setHandler([this, behaviour = std::move(behaviour)](const PortMessage& message) {
            EXPECT_EQ(message.msgid, 8888U);
            const Value request = unarchive(message.components.at(0)).value_or("no archive");
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
            const auto answer = behaviour(request);
            if (!answer)
                return;
            kept_ = message.replyPort;
            if (answer->is_object())
                kept_->send({.msgid = 8889, .components = {*archive(*answer)}},
                            std::chrono::seconds(5));
            if (answer->is_string())
                kept_->send({.msgid = 8889, .components = {toBytes(answer->get<std::string>())}},
                            std::chrono::seconds(5));
        });
        service_->addToRunLoop(*loop_);
        thread_ = std::thread([this] {
            while (!done_)
                loop_->runFor(std::chrono::milliseconds(5));
        });
    }
    ~FakeAgent() {
        done_ = true;
        thread_.join();
    }
    std::vector<Value> requests() {
        const std::lock_guard lock(mutex_);
        return requests_;
    }
    /// Whether nobody waits any longer for the answer to the latest request.
    bool isWithdrawn() {
        const std::lock_guard lock(mutex_);
        return kept_ && !kept_->send({.msgid = 1}, std::chrono::milliseconds(0));
    }

  private:
    LinuxPortSystem ports_;
    std::unique_ptr<RunLoop> loop_;
    std::unique_ptr<Port> service_;
    std::mutex mutex_;
    std::vector<Value> requests_;
    SendRightPtr kept_;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

}  // namespace quorl::test
