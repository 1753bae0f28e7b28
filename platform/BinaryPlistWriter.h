#pragma once

#include "Bytes.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace quorl {

/// Collects the objects of a binary property list and writes them out. Containers name their
/// entries by index, so an object must be added before the container that holds it, the top one
/// last. Views given to it must live until finish().
class BinaryPlistWriter {
  public:
    using Index = std::uint32_t;

    Index addBoolean(bool value);
    Index addInteger(std::int64_t value);
    Index addUnsigned(std::uint64_t value);
    Index addReal(double value);
    Index addData(ByteView data);
    /// Valid UTF-8 without NUL (isPlainText); ASCII is kept as such, the rest becomes UTF-16.
    Index addText(std::string_view text);
    Index addUid(std::uint32_t uid);
    Index addArray(const std::vector<Index>& entries);
    Index addDictionary(const std::vector<Index>& keys, const std::vector<Index>& values);

    Bytes finish(Index top) const;

  private:
    enum class Kind : std::uint8_t { scalar, data, text, array, dictionary };
    struct Object {
        Kind kind;
        std::uint8_t marker = 0;  ///< scalars: marker and how many bytes of the number follow
        std::uint8_t numberSize = 0;
        std::uint64_t number = 0;
        std::string_view content = {};  ///< texts and data
        std::uint32_t first = 0;        ///< containers: first entry in references_, and how many
        std::uint32_t count = 0;
    };
    Index add(const Object& object);
    Index addScalar(std::uint8_t marker, std::uint64_t number, std::uint8_t size);
    void write(const Object& object, std::size_t referenceSize, Bytes& out) const;

    std::vector<Object> objects_;
    std::vector<Index> references_;
};

}  // namespace quorl
