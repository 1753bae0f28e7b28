#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace quorl {

/// The bus's side of the words that a client exchanges with it before messages flow. Who the client
/// is has been settled before: what it says of itself counts for nothing. It gets no descriptors
/// across, since only bytes are relayed.
class BusHandshake {
  public:
    enum class State { talking, begun, refused };

    /// The identity of the bus, which the client is told.
    explicit BusHandshake(std::string guid) : guid_(std::move(guid)) {}

    /// Takes what the client sent. Once begun, nothing more.
    State take(std::string_view bytes);
    /// What is to be sent to the client, once.
    std::string takeReply() { return std::exchange(reply_, {}); }
    /// What came behind the handshake: the first of the messages.
    std::string takeRest() { return std::exchange(input_, {}); }

  private:
    State answer(std::string_view line);
    void say(std::string_view line);
    void admit();

    std::string guid_;
    std::string input_;
    std::string reply_;
    int lines_ = 0;
    bool greeted_ = false;
    bool awaitsIdentity_ = false;
    bool admitted_ = false;
};

}  // namespace quorl
