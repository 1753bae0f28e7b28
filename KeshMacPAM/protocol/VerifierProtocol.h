#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

/// What the PAM module and its helper say to each other over a SOCK_SEQPACKET pair, whose one end
/// the helper finds as descriptor 3. The module lives in any login program, so nothing here
/// allocates, throws or needs the C++ run-time library.
///
/// One packet, at most 4096 bytes, is one message:
///
/// | offset | field |
/// | ------ | ----- |
/// | 0      | bytes "KVP" |
/// | 3      | u8 version; any other than `version` is refused |
/// | 4      | u8 kind |
/// | 5      | the kind's fields in the order of its struct; nothing may follow the last |
///
/// A text is a u16 length and that many bytes, a number a u32, an enum or truth value a u8; all
/// little-endian. The module sends `Start` first and a `Reply` for each `Ask`; the helper sends the
/// rest, and `Verdict` once. The helper says `Alive` every `aliveEvery` except while an `Ask` is
/// open: after `silence` without a packet the module takes it for hung. An end that closes before
/// the verdict ends the other.
namespace quorl::verifier {

inline constexpr std::uint8_t version = 1;
inline constexpr std::size_t packetLimit = 4096;
inline constexpr int channelDescriptor = 3;
inline constexpr std::chrono::milliseconds aliveEvery{2000};
inline constexpr std::chrono::milliseconds silence{10000};

enum class Kind : std::uint8_t { Start = 1, Alive = 2, Say = 3, Ask = 4, Reply = 5, Verdict = 6 };

/// The option `mode` for the service that asks. Auto: the window at a display manager whose agent
/// lives, else text.
enum class Mode : std::uint8_t { Auto = 1, Window = 2, Text = 3 };

/// The option `key`: what the server's answer has to hold.
enum class KeyRule : std::uint8_t { Present = 1, Signed = 2 };

/// Everything else that the module can get, nothing included, is a denial.
enum class Verdict : std::uint8_t {
    Granted = 1,
    Denied = 2,
    DeniedMaxTries = 3,  ///< locked or used up: the host need not ask again
    Ignore = 4           ///< no second factor is owed
};

/// How a prompt ended at the conversation.
enum class Answer : std::uint8_t {
    Typed = 1,
    Password = 2,  ///< it was the password just verified; its text is not in the packet
    None = 3       ///< the conversation failed; the module denies whatever the helper says then
};

struct Start {
    std::string_view service;  ///< PAM_SERVICE
    std::string_view user;   ///< PAM_USER: at most 256 bytes of UTF-8, no control character, no '/'
    std::string_view tty;    ///< PAM_TTY or empty
    std::string_view rhost;  ///< PAM_RHOST or empty
    std::string_view language;  ///< such as de_DE.UTF-8, or empty
    std::string_view page;      ///< the option `page`
    Mode mode = Mode::Auto;
    KeyRule key = KeyRule::Present;
    bool echo = true;                   ///< the option `echo`: one-time codes are shown as typed
    std::chrono::milliseconds left{0};  ///< from the sending on, for all of the attempt
};

struct Say {
    bool error = false;
    std::string_view text;
};

struct Ask {
    bool hidden = false;
    std::string_view text;
};

struct Reply {
    Answer answer = Answer::None;
    std::string_view text;  ///< only with Answer::Typed
};

/// A packet to send: filled in place, never allocated. `size` 0: the fields did not fit.
struct Packet {
    std::array<unsigned char, packetLimit> bytes{};
    std::size_t size = 0;
};

/// A packet as received; the texts that a decoder gives point into it.
struct Received {
    const unsigned char* bytes = nullptr;
    std::size_t size = 0;
};

namespace detail {

inline constexpr std::size_t headerSize = 5;

class Writer {
  public:
    Writer(Packet& packet, Kind kind) : packet_(packet) {
        packet_.size = 0;
        for (const unsigned char byte : {std::uint8_t{'K'}, std::uint8_t{'V'}, std::uint8_t{'P'},
                                         version, static_cast<std::uint8_t>(kind)})
            u8(byte);
    }

    Writer& u8(std::uint8_t value) {
        if (fits_ && packet_.size < packetLimit)
            packet_.bytes[packet_.size++] = value;
        else
            fits_ = false;
        return *this;
    }

    Writer& u32(std::uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8)
            u8(static_cast<std::uint8_t>(value >> shift));
        return *this;
    }

    Writer& text(std::string_view value) {
        if (value.size() > packetLimit)
            fits_ = false;
        u8(static_cast<std::uint8_t>(value.size()))
            .u8(static_cast<std::uint8_t>(value.size() >> 8));
        for (const char c : value)
            u8(static_cast<std::uint8_t>(c));
        return *this;
    }

    bool done() {
        if (!fits_)
            packet_.size = 0;
        return fits_;
    }

  private:
    Packet& packet_;
    bool fits_ = true;
};

class Reader {
  public:
    Reader(Received packet, Kind kind) : packet_(packet) {
        whole_ = u8() == 'K' && u8() == 'V' && u8() == 'P' && u8() == version &&
                 u8() == static_cast<std::uint8_t>(kind) && whole_;
    }

    std::uint8_t u8() {
        if (whole_ && at_ < packet_.size)
            return packet_.bytes[at_++];
        whole_ = false;
        return 0;
    }

    std::uint32_t u32() {
        std::uint32_t value = 0;
        for (int shift = 0; shift < 32; shift += 8)
            value |= static_cast<std::uint32_t>(u8()) << shift;
        return value;
    }

    std::string_view text() {
        const std::size_t low = u8(), length = low | static_cast<std::size_t>(u8()) << 8;
        if (!whole_ || packet_.size - at_ < length) {
            whole_ = false;
            return {};
        }
        const std::string_view value(reinterpret_cast<const char*>(packet_.bytes) + at_, length);
        at_ += length;
        return value;
    }

    bool truth() { return enumerated<std::uint8_t>(0, 1) != 0; }

    template <class E>
    E enumerated(E first, E last) {
        const std::uint8_t value = u8();
        if (value < static_cast<std::uint8_t>(first) || value > static_cast<std::uint8_t>(last))
            whole_ = false;
        return whole_ ? static_cast<E>(value) : first;
    }

    bool done() const { return whole_ && at_ == packet_.size; }

  private:
    Received packet_;
    std::size_t at_ = 0;
    bool whole_ = true;
};

}  // namespace detail

/// The kind of a packet of this version; nothing for anything else.
inline std::optional<Kind> kindOf(Received packet) {
    if (packet.size < detail::headerSize)
        return std::nullopt;
    const std::uint8_t kind = packet.bytes[detail::headerSize - 1];
    if (kind < static_cast<std::uint8_t>(Kind::Start) ||
        kind > static_cast<std::uint8_t>(Kind::Verdict) || packet.bytes[0] != 'K' ||
        packet.bytes[1] != 'V' || packet.bytes[2] != 'P' || packet.bytes[3] != version)
        return std::nullopt;
    return static_cast<Kind>(kind);
}

// Each `encode` gives false when the fields do not fit into a packet.

inline bool encode(const Start& start, Packet& packet) {
    return detail::Writer(packet, Kind::Start)
        .text(start.service)
        .text(start.user)
        .text(start.tty)
        .text(start.rhost)
        .text(start.language)
        .text(start.page)
        .u8(static_cast<std::uint8_t>(start.mode))
        .u8(static_cast<std::uint8_t>(start.key))
        .u8(start.echo ? 1 : 0)
        .u32(static_cast<std::uint32_t>(start.left.count()))
        .done();
}

inline bool encodeAlive(Packet& packet) {
    return detail::Writer(packet, Kind::Alive).done();
}

inline bool encode(const Say& say, Packet& packet) {
    return detail::Writer(packet, Kind::Say).u8(say.error ? 1 : 0).text(say.text).done();
}

inline bool encode(const Ask& ask, Packet& packet) {
    return detail::Writer(packet, Kind::Ask).u8(ask.hidden ? 1 : 0).text(ask.text).done();
}

inline bool encode(const Reply& reply, Packet& packet) {
    return detail::Writer(packet, Kind::Reply)
        .u8(static_cast<std::uint8_t>(reply.answer))
        .text(reply.answer == Answer::Typed ? reply.text : std::string_view())
        .done();
}

inline bool encode(Verdict verdict, Packet& packet) {
    return detail::Writer(packet, Kind::Verdict).u8(static_cast<std::uint8_t>(verdict)).done();
}

// Each decoder is all or nothing: another kind, a cut or overlong packet, a value out of range give
// nothing. Braces keep the order of the fields' evaluation.

inline std::optional<Start> decodeStart(Received packet) {
    detail::Reader read(packet, Kind::Start);
    const Start start{read.text(),
                      read.text(),
                      read.text(),
                      read.text(),
                      read.text(),
                      read.text(),
                      read.enumerated(Mode::Auto, Mode::Text),
                      read.enumerated(KeyRule::Present, KeyRule::Signed),
                      read.truth(),
                      std::chrono::milliseconds(read.u32())};
    return read.done() ? std::optional(start) : std::nullopt;
}

inline std::optional<Say> decodeSay(Received packet) {
    detail::Reader read(packet, Kind::Say);
    const Say say{read.truth(), read.text()};
    return read.done() ? std::optional(say) : std::nullopt;
}

inline std::optional<Ask> decodeAsk(Received packet) {
    detail::Reader read(packet, Kind::Ask);
    const Ask ask{read.truth(), read.text()};
    return read.done() ? std::optional(ask) : std::nullopt;
}

inline std::optional<Reply> decodeReply(Received packet) {
    detail::Reader read(packet, Kind::Reply);
    const Reply reply{read.enumerated(Answer::Typed, Answer::None), read.text()};
    return read.done() ? std::optional(reply) : std::nullopt;
}

inline std::optional<Verdict> decodeVerdict(Received packet) {
    detail::Reader read(packet, Kind::Verdict);
    const Verdict verdict = read.enumerated(Verdict::Granted, Verdict::Ignore);
    return read.done() ? std::optional(verdict) : std::nullopt;
}

}  // namespace quorl::verifier
