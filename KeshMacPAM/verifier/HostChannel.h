#pragma once

#include "Handle.h"
#include "VerifierProtocol.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace quorl {

/// Who signs in, and how the module's options say to ask: the start packet, owned.
struct SignInStart {
    std::string service;
    std::string user;
    std::string tty;
    std::string rhost;
    std::string page;
    verifier::Mode mode = verifier::Mode::Auto;
    verifier::KeyRule key = verifier::KeyRule::Present;
    bool echo = true;
    std::chrono::steady_clock::time_point end;  ///< when the attempt's time is up
};

/// What the person answered.
struct HostReply {
    verifier::Answer answer = verifier::Answer::None;
    std::string text = {};
};

/// The helper's end of the pair, and an eye on the process at the other: a child that another
/// thread of the host forked may hold the pair open after the host has gone. When either has
/// ended, or says what it must not, nobody waits for a verdict any longer: `gone` is called then
/// and ends the process, which frees whatever it holds. One thread.
class HostChannel {
  public:
    using SteadyTime = std::chrono::steady_clock::time_point;
    using Gone = std::function<void(std::string_view why)>;
    enum class Wait { readable, timeUp };

    HostChannel(FileDescriptor socket, Gone gone);

    /// The first packet; waits a little for it.
    SignInStart start();
    /// Says that the helper lives. Call before whatever may take a second or more.
    void alive();
    void say(std::string_view text, bool error);
    /// Asks and waits for as long as the conversation takes.
    HostReply ask(std::string_view text, bool hidden);
    /// Waits until one of the descriptors can be read, or the time is up, saying meanwhile that
    /// the helper lives. -1 stands for none.
    Wait waitFor(int one, int other, SteadyTime until);
    /// The last word. From here on the other end may close.
    void verdict(verifier::Verdict verdict);

  private:
    void send(const verifier::Packet& packet);
    void watch(int timeout, int one, int other, bool& readable);
    [[noreturn]] void leave(std::string_view why);

    FileDescriptor socket_;
    FileDescriptor host_;
    Gone gone_;
    SteadyTime aliveAt_;
};

}  // namespace quorl
