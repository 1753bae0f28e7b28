#pragma once

#include "Port.h"

#include <mutex>

namespace quorl::test {

/// Keeps what is sent to it; may be used from two threads, as the real one is.
class FakeSendRight final : public SendRight {
  public:
    bool send(const PortMessage& message, std::chrono::milliseconds) override {
        const std::lock_guard lock(mutex_);
        if (!failing)
            messages_.push_back(message);
        return !failing;
    }
    std::unique_ptr<ReceiverWatch> watchReceiver(RunLoop&, std::function<void()>) override {
        return nullptr;
    }
    std::vector<PortMessage> messages() const {
        const std::lock_guard lock(mutex_);
        return messages_;
    }
    bool failing = false;

  private:
    mutable std::mutex mutex_;
    std::vector<PortMessage> messages_;
};

/// A port without a socket: what is sent to it is kept, and the test delivers what it likes.
class FakePort final : public Port {
  public:
    explicit FakePort(Handler& handler) : handler_(handler) {}
    SendRightPtr sendRight() override { return right_; }
    void setHandler(Handler handler) override { handler_ = std::move(handler); }
    void addToRunLoop(RunLoop&) override {}
    void invalidate() override {}

  private:
    Handler& handler_;
    std::shared_ptr<FakeSendRight> right_ = std::make_shared<FakeSendRight>();
};

class FakeRunLoop : public RunLoop {
  public:
    void add(RunLoopSource&) override {}
    void addForHangUp(RunLoopSource&) override {}
    void remove(RunLoopSource&) override {}
    void runFor(std::chrono::milliseconds) override {}
};

/// Makes fake ports; the bootstrap name can never be had, so a relay ends after its check-in.
class FakePortSystem final : public PortSystem {
  public:
    /// The handler of the first port made: the application's.
    Port::Handler applicationHandler;

    std::unique_ptr<Port> makePort() override {
        const std::lock_guard lock(mutex_);
        return std::make_unique<FakePort>(made_++ == 0 ? applicationHandler : otherHandler_);
    }
    std::unique_ptr<Port> servicePortWithName(const std::string&) override { return nullptr; }
    std::unique_ptr<RunLoop> makeRunLoop() override { return std::make_unique<FakeRunLoop>(); }

  private:
    std::mutex mutex_;
    int made_ = 0;
    Port::Handler otherHandler_;
};

}  // namespace quorl::test
