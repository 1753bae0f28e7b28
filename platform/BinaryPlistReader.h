#pragma once

#include "Bytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorl {

/// A bounded reader of binary property lists ("bplist00": objects, offset table, 32-byte trailer).
/// The bytes may come from anybody: every object is checked before it is used, nothing is copied
/// until it is asked for, and nested, shared and cyclic references are bounded by depth and visits.
/// The bytes must outlive the reader.
class BinaryPlistReader {
  public:
    enum class Kind : std::uint8_t {
        boolean,
        integer,
        unsignedInteger,  ///< 2^63 to 2^64 - 1, which 16 bytes hold
        real,
        date,  ///< seconds since 2001-01-01 UTC
        data,
        asciiText,
        utf16Text,
        uid,
        array,
        dictionary,
    };
    struct Object {
        Kind kind = Kind::boolean;
        std::uint32_t count = 0;   ///< bytes, code units, entries
        std::uint32_t offset = 0;  ///< of the first byte behind the marker and the count
        union {
            std::int64_t integer = 0;
            std::uint64_t unsignedInteger;
            double real;
        };
    };
    using Index = std::uint32_t;

    /// What the bytes may cost: values are counted by visit, so a shared one counts each time it
    /// is reached; so are the bytes of keys.
    struct Limits {
        std::size_t bytes;
        std::uint32_t values;
        std::size_t keyBytes;
        int depth;
    };

    /// Nothing when the bytes break the format or a limit: a truncated or trailing part, offsets
    /// or references out of range, objects that overlap, cycles, a key that is no text or occurs
    /// twice in its dictionary.
    static std::optional<BinaryPlistReader> open(ByteView bytes, const Limits& limits);

    Index top() const { return top_; }
    const Object& at(Index index) const { return objects_[index]; }

    /// Entry of an array; key or value of a dictionary's entry.
    Index element(const Object& array, std::uint32_t position) const;
    Index key(const Object& dictionary, std::uint32_t position) const;
    Index value(const Object& dictionary, std::uint32_t position) const;
    /// The value under an ASCII key; nothing when it is absent.
    std::optional<Index> find(const Object& dictionary, std::string_view key) const;

    ByteView data(const Object& object) const {
        return bytes_.subspan(object.offset, object.count);
    }
    /// UTF-8; nothing when the text is invalid or holds a NUL.
    std::optional<std::string> text(const Object& object) const;
    /// Whether the object is that ASCII text.
    bool isText(Index index, std::string_view text) const;

  private:
    explicit BinaryPlistReader(ByteView bytes) : bytes_(bytes) {}
    bool readObjects(const Limits& limits);
    /// The object at `at`, which moves behind it.
    std::optional<Object> readObject(std::size_t& at) const;
    bool readCount(std::uint8_t low, std::size_t& at, std::uint32_t& count) const;
    bool referencesInRange() const;
    /// Visits the object and all it holds, and takes what they cost off the limits.
    bool withinLimits(Index index, Limits& limits) const;
    bool keysDistinct(const Object& dictionary, Limits& limits) const;
    bool isPlainAscii(const Object& object) const;
    std::uint64_t bigEndian(std::size_t at, std::size_t size) const;
    Index reference(std::uint32_t offset, std::uint32_t position) const;

    ByteView bytes_;
    std::vector<Object> objects_;
    Index top_ = 0;
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::size_t offsetTable_ = 0;
};

}  // namespace quorl
