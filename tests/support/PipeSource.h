#pragma once

#include "Handle.h"
#include "RunLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <functional>

namespace quorl::test {

/// A pipe that is readable from the start, until it is drained.
class PipeSource final : public RunLoopSource {
  public:
    explicit PipeSource(std::function<void()> action) : action_(std::move(action)) {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0)
            abort();
        reader_.reset(ends[0]);
        writer_.reset(ends[1]);
        send(1);
    }
    void send(int bytes) {
        for (int i = 0; i < bytes; ++i)
            EXPECT_EQ(write(writer_.get(), "x", 1), 1);
    }
    int descriptor() const override { return reader_.get(); }
    void ready() override {
        ++calls;
        char byte = 0;
        EXPECT_EQ(read(reader_.get(), &byte, 1), 1);
        action_();
    }
    int calls = 0;

  private:
    FileDescriptor reader_;
    FileDescriptor writer_;
    std::function<void()> action_;
};

}  // namespace quorl::test
