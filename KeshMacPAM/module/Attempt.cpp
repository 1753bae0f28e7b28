#include "Attempt.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace quorl::pam {
namespace {

using namespace std::chrono_literals;
using verifier::Answer;
using verifier::Kind;
using verifier::Verdict;

// What the helper may still take to say "too late" after a prompt that came back late, or to write
// its line after a conversation that failed.
constexpr Milliseconds farewell = 3s;
// More than an hour of `Alive`, and far from what costs the host anything.
constexpr int mostPackets = 4096;

Outcome without(const char* reason, int error = 0) {
    return {.verdict = {}, .reason = reason, .error = error};
}

}  // namespace

Outcome Attempt::play(const verifier::Start& start) {
    verifier::Packet packet;
    if (!encode(start, packet))
        return without("the names of this sign-in do not fit into a packet");
    // A helper that is gone by now left its reason in the pair.
    if (!send(packet) && errno != EPIPE && errno != ECONNRESET)
        return without("the helper took no start", errno);

    std::array<unsigned char, verifier::packetLimit + 1> buffer;
    for (int packets = 0; packets < mostPackets; ++packets) {
        switch (wait()) {
            case Wake::Packet:
                break;
            case Wake::Ended:
                return without("the helper ended without a verdict");
            case Wake::Silent:
                return without("the helper kept silent");
            case Wake::Late:
                return {.verdict = {}, .reason = "the time ran out", .late = true};
            case Wake::Failed:
                return without("the helper could not be waited for", errno);
        }
        const ssize_t size =
            recv(helper_.channel(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC);
        // A reset says that the other end closed with packets of ours unread; its own come after
        // it.
        if (size < 0 && (errno == EAGAIN || errno == EINTR || errno == ECONNRESET))
            continue;
        if (size <= 0)
            return without("the helper ended without a verdict", size < 0 ? errno : 0);
        if (static_cast<std::size_t>(size) > verifier::packetLimit)
            return without("the helper sent an overlong packet");
        lastHeard_ = sinceBoot();
        std::optional<Outcome> outcome = take({buffer.data(), static_cast<std::size_t>(size)});
        explicit_bzero(buffer.data(), static_cast<std::size_t>(size));
        if (outcome)
            return *outcome;
    }
    return without("the helper sent packets without end");
}

Attempt::Wake Attempt::wait() const {
    for (;;) {
        const Milliseconds until = std::min(end_, lastHeard_ + verifier::silence);
        const Milliseconds left = std::max<Milliseconds>(until - sinceBoot(), 0ms);
        std::array<pollfd, 2> watched{
            {{helper_.channel(), POLLIN, 0}, {helper_.ended(), POLLIN, 0}}};
        const int woken = poll(watched.data(), watched.size(), static_cast<int>(left.count()));
        if (woken == 0)
            return end_ <= until ? Wake::Late : Wake::Silent;
        if (woken < 0 && errno != EINTR)
            return Wake::Failed;
        if (woken < 0)
            continue;
        if (watched[0].revents != 0)
            return Wake::Packet;
        // It may have sent its last packet just before it ended, after the pair was looked at.
        return poll(watched.data(), 1, 0) > 0 ? Wake::Packet : Wake::Ended;
    }
}

std::optional<Outcome> Attempt::take(verifier::Received packet) {
    if (const int error = startError(packet))
        return without("the helper could not be started", error);
    const std::optional<Kind> kind = kindOf(packet);
    if (kind == Kind::Alive)
        return std::nullopt;
    if (kind == Kind::Say) {
        if (const auto say = decodeSay(packet)) {
            conversation_.say(say->text, say->error);
            lastHeard_ = sinceBoot();
            return std::nullopt;
        }
    } else if (kind == Kind::Ask) {
        if (const auto question = decodeAsk(packet))
            return ask(*question);
    } else if (kind == Kind::Verdict) {
        if (const auto verdict = decodeVerdict(packet)) {
            if (late_ && (*verdict == Verdict::Granted || *verdict == Verdict::Ignore))
                return Outcome{.verdict = {}, .reason = "the time ran out", .late = true};
            return Outcome{.verdict = verdict};
        }
    }
    return without("the helper sent a packet that is none of this version");
}

std::optional<Outcome> Attempt::ask(const verifier::Ask& question) {
    const Response response = conversation_.ask(question.text, question.hidden);
    const Milliseconds now = sinceBoot();
    lastHeard_ = now;
    // Nobody can end a prompt from outside, so its time counts when it comes back. The helper then
    // has a moment to say so itself.
    late_ = late_ || now >= end_;
    if (late_)
        end_ = now + farewell;

    verifier::Packet reply;
    const bool sent =
        encode(verifier::Reply{response.answer(), response.text()}, reply) && send(reply);
    const int error = errno;
    explicit_bzero(reply.bytes.data(), reply.bytes.size());
    if (response.answer() == Answer::None) {
        pollfd ended{helper_.ended(), POLLIN, 0};
        poll(&ended, 1, static_cast<int>(farewell.count()));
        return Outcome{
            .verdict = {}, .reason = "the conversation gave no answer", .speechless = true};
    }
    if (!sent)
        return without("the helper took no reply", error);
    return std::nullopt;
}

bool Attempt::send(const verifier::Packet& packet) const {
    return ::send(helper_.channel(), packet.bytes.data(), packet.size,
                  MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(packet.size);
}

}  // namespace quorl::pam
