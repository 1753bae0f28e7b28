#include "BinaryPlistWriter.h"

#include "Utf8.h"

#include <bit>

namespace quorl {
namespace {

constexpr std::string_view magic = "bplist00";

void putBigEndian(std::uint64_t number, std::size_t size, Bytes& out) {
    for (std::size_t i = size; i-- > 0;)
        out.push_back(static_cast<std::uint8_t>(i < 8 ? number >> (8 * i) : 0));
}

// The fewest bytes, of 1, 2, 4 and 8, that hold the number.
std::uint8_t sizeFor(std::uint64_t number) {
    if (number <= 0xff)
        return 1;
    if (number <= 0xffff)
        return 2;
    return number <= 0xffffffff ? 4 : 8;
}

void putMarker(std::uint8_t kind, std::size_t count, Bytes& out) {
    if (count < 15) {
        out.push_back(static_cast<std::uint8_t>(kind | count));
        return;
    }
    const std::uint8_t size = sizeFor(count);
    out.push_back(kind | 0x0f);
    out.push_back(static_cast<std::uint8_t>(0x10 | std::countr_zero(size)));
    putBigEndian(count, size, out);
}

void putText(std::string_view text, Bytes& out) {
    if (isAscii(text)) {
        putMarker(0x50, text.size(), out);
        out.insert(out.end(), text.begin(), text.end());
        return;
    }
    Bytes units;
    for (std::size_t at = 0; at < text.size();) {
        const auto point = static_cast<std::uint32_t>(nextCodePoint(text, at));
        if (point >= 0x10000) {
            putBigEndian(0xd800 + ((point - 0x10000) >> 10), 2, units);
            putBigEndian(0xdc00 + ((point - 0x10000) & 0x3ff), 2, units);
        } else {
            putBigEndian(point, 2, units);
        }
    }
    putMarker(0x60, units.size() / 2, out);
    out.insert(out.end(), units.begin(), units.end());
}

}  // namespace

BinaryPlistWriter::Index BinaryPlistWriter::add(const Object& object) {
    objects_.push_back(object);
    return static_cast<Index>(objects_.size() - 1);
}

BinaryPlistWriter::Index BinaryPlistWriter::addScalar(std::uint8_t marker, std::uint64_t number,
                                                      std::uint8_t size) {
    return add({.kind = Kind::scalar, .marker = marker, .numberSize = size, .number = number});
}

BinaryPlistWriter::Index BinaryPlistWriter::addBoolean(bool value) {
    return addScalar(value ? 0x09 : 0x08, 0, 0);
}

BinaryPlistWriter::Index BinaryPlistWriter::addInteger(std::int64_t value) {
    const auto number = static_cast<std::uint64_t>(value);
    const std::uint8_t size = value < 0 ? 8 : sizeFor(number);
    return addScalar(static_cast<std::uint8_t>(0x10 | std::countr_zero(size)), number, size);
}

BinaryPlistWriter::Index BinaryPlistWriter::addUnsigned(std::uint64_t value) {
    if (value <= INT64_MAX)
        return addInteger(static_cast<std::int64_t>(value));
    return addScalar(0x14, value, 16);
}

BinaryPlistWriter::Index BinaryPlistWriter::addReal(double value) {
    return addScalar(0x23, std::bit_cast<std::uint64_t>(value), 8);
}

BinaryPlistWriter::Index BinaryPlistWriter::addData(ByteView data) {
    return add({.kind = Kind::data, .content = asText(data)});
}

BinaryPlistWriter::Index BinaryPlistWriter::addText(std::string_view text) {
    return add({.kind = Kind::text, .content = text});
}

BinaryPlistWriter::Index BinaryPlistWriter::addUid(std::uint32_t uid) {
    const std::uint8_t size = sizeFor(uid);
    return addScalar(static_cast<std::uint8_t>(0x80 | (size - 1)), uid, size);
}

BinaryPlistWriter::Index BinaryPlistWriter::addArray(const std::vector<Index>& entries) {
    const auto first = static_cast<std::uint32_t>(references_.size());
    references_.insert(references_.end(), entries.begin(), entries.end());
    return add(
        {.kind = Kind::array, .first = first, .count = static_cast<std::uint32_t>(entries.size())});
}

BinaryPlistWriter::Index BinaryPlistWriter::addDictionary(const std::vector<Index>& keys,
                                                          const std::vector<Index>& values) {
    const auto first = static_cast<std::uint32_t>(references_.size());
    references_.insert(references_.end(), keys.begin(), keys.end());
    references_.insert(references_.end(), values.begin(), values.end());
    return add({.kind = Kind::dictionary,
                .first = first,
                .count = static_cast<std::uint32_t>(keys.size())});
}

void BinaryPlistWriter::write(const Object& object, std::size_t referenceSize, Bytes& out) const {
    std::uint32_t references = object.count;
    switch (object.kind) {
        case Kind::scalar:
            out.push_back(object.marker);
            putBigEndian(object.number, object.numberSize, out);
            return;
        case Kind::data:
            putMarker(0x40, object.content.size(), out);
            out.insert(out.end(), object.content.begin(), object.content.end());
            return;
        case Kind::text:
            putText(object.content, out);
            return;
        case Kind::array:
            putMarker(0xa0, object.count, out);
            break;
        case Kind::dictionary:
            putMarker(0xd0, object.count, out);
            references = 2 * object.count;
            break;
    }
    for (std::uint32_t i = 0; i < references; ++i)
        putBigEndian(references_[object.first + i], referenceSize, out);
}

Bytes BinaryPlistWriter::finish(Index top) const {
    const std::size_t referenceSize = sizeFor(objects_.size());
    Bytes out = toBytes(magic);
    out.reserve(64 * objects_.size());
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
        offsets.push_back(out.size());
        write(object, referenceSize, out);
    }
    const std::uint64_t table = out.size();
    const std::uint8_t offsetSize = sizeFor(table);
    for (const std::uint64_t offset : offsets)
        putBigEndian(offset, offsetSize, out);
    putBigEndian(0, 6, out);
    out.push_back(offsetSize);
    out.push_back(static_cast<std::uint8_t>(referenceSize));
    putBigEndian(objects_.size(), 8, out);
    putBigEndian(top, 8, out);
    putBigEndian(table, 8, out);
    return out;
}

}  // namespace quorl
