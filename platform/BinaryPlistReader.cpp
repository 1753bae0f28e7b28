#include "BinaryPlistReader.h"

#include "Utf8.h"

#include <algorithm>
#include <bit>
#include <forward_list>

namespace quorl {
namespace {

constexpr std::string_view magic = "bplist00";
constexpr std::size_t trailerSize = 32;
constexpr std::uint8_t countFollows = 0x0f;

}  // namespace

std::optional<BinaryPlistReader> BinaryPlistReader::open(ByteView bytes, const Limits& limits) {
    BinaryPlistReader reader(bytes);
    Limits left = limits;
    if (!reader.readObjects(limits) || !reader.referencesInRange() ||
        !reader.withinLimits(reader.top_, left))
        return std::nullopt;
    return reader;
}

bool BinaryPlistReader::readObjects(const Limits& limits) {
    const std::size_t size = bytes_.size();
    if (size < magic.size() + trailerSize || size > limits.bytes ||
        !asText(bytes_).starts_with(magic))
        return false;
    const std::size_t trailer = size - trailerSize;
    if (bigEndian(trailer, 6) != 0)
        return false;
    offsetSize_ = bytes_[trailer + 6];
    referenceSize_ = bytes_[trailer + 7];
    const std::uint64_t objects = bigEndian(trailer + 8, 8);
    const std::uint64_t top = bigEndian(trailer + 16, 8);
    const std::uint64_t table = bigEndian(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8 ||
        objects == 0 || objects > limits.values || top >= objects || table < magic.size() ||
        table > trailer || trailer - table != objects * offsetSize_)
        return false;
    offsetTable_ = table;
    top_ = static_cast<Index>(top);
    objects_.reserve(objects);
    // No writer lets objects overlap, and overlapping ones would be more than the bytes can hold.
    std::size_t room = table - magic.size();
    for (std::uint64_t i = 0; i < objects; ++i) {
        const std::uint64_t offset = bigEndian(table + i * offsetSize_, offsetSize_);
        if (offset < magic.size() || offset >= table)
            return false;
        std::size_t end = offset;
        const auto object = readObject(end);
        if (!object || end - offset > room)
            return false;
        room -= end - offset;
        objects_.push_back(*object);
    }
    return true;
}

std::optional<BinaryPlistReader::Object> BinaryPlistReader::readObject(std::size_t& at) const {
    const std::uint8_t marker = bytes_[at++];
    const std::uint8_t low = marker & 0x0f;
    const auto fits = [&](std::uint64_t size) { return size <= offsetTable_ - at; };
    Object object;

    // What a counted object needs behind its count: so many entries of so many bytes.
    const auto counted = [&](Kind kind, std::uint64_t entrySize) -> std::optional<Object> {
        object.kind = kind;
        if (!readCount(low, at, object.count) || !fits(object.count * entrySize))
            return std::nullopt;
        object.offset = static_cast<std::uint32_t>(at);
        at += object.count * entrySize;
        return object;
    };
    const auto number = [&](std::size_t size) {
        at += size;
        return bigEndian(at - size, size);
    };

    switch (marker >> 4) {
        case 0x0:
            if (low != 0x8 && low != 0x9)
                return std::nullopt;
            object.integer = low == 0x9;
            return object;
        case 0x1: {
            const std::size_t size = std::size_t{1} << low;
            if (low > 4 || !fits(size))
                return std::nullopt;
            object.kind = Kind::integer;
            if (size < 16) {
                // One, two and four bytes are unsigned; eight carry the sign.
                object.integer = static_cast<std::int64_t>(number(size));
                return object;
            }
            if (number(8) != 0)
                return std::nullopt;
            object.unsignedInteger = number(8);
            if (object.unsignedInteger > INT64_MAX)
                object.kind = Kind::unsignedInteger;
            return object;
        }
        case 0x2:
        case 0x3: {
            const bool isDate = marker == 0x33;
            if (!isDate && marker != 0x22 && marker != 0x23)
                return std::nullopt;
            const std::size_t size = std::size_t{1} << low;
            if (!fits(size))
                return std::nullopt;
            object.kind = isDate ? Kind::date : Kind::real;
            if (size == 4)
                object.real = std::bit_cast<float>(static_cast<std::uint32_t>(number(4)));
            else
                object.real = std::bit_cast<double>(number(8));
            return object;
        }
        case 0x4:
            return counted(Kind::data, 1);
        case 0x5:
            return counted(Kind::asciiText, 1);
        case 0x6:
            return counted(Kind::utf16Text, 2);
        case 0x8: {
            const std::size_t size = std::size_t{low} + 1;
            if (size > 8 || !fits(size))
                return std::nullopt;
            object.kind = Kind::uid;
            object.unsignedInteger = number(size);
            return object;
        }
        case 0xa:
            return counted(Kind::array, referenceSize_);
        case 0xd:
            return counted(Kind::dictionary, 2 * referenceSize_);
        default:
            return std::nullopt;
    }
}

bool BinaryPlistReader::readCount(std::uint8_t low, std::size_t& at, std::uint32_t& count) const {
    if (low != countFollows) {
        count = low;
        return true;
    }
    if (at >= offsetTable_ || bytes_[at] >> 4 != 0x1 || (bytes_[at] & 0x0f) > 3)
        return false;
    const std::size_t size = std::size_t{1} << (bytes_[at] & 0x0f);
    ++at;
    if (size > offsetTable_ - at)
        return false;
    const std::uint64_t value = bigEndian(at, size);
    at += size;
    count = static_cast<std::uint32_t>(value);
    return value <= bytes_.size();
}

bool BinaryPlistReader::referencesInRange() const {
    for (const Object& object : objects_) {
        if (object.kind != Kind::array && object.kind != Kind::dictionary)
            continue;
        const std::uint32_t count =
            object.kind == Kind::dictionary ? 2 * object.count : object.count;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (bigEndian(object.offset + i * referenceSize_, referenceSize_) >= objects_.size())
                return false;
        }
    }
    return true;
}

bool BinaryPlistReader::withinLimits(Index index, Limits& left) const {
    if (left.depth == 0 || left.values == 0)
        return false;
    --left.values;
    const Object& object = objects_[index];
    if (object.kind != Kind::array && object.kind != Kind::dictionary)
        return true;
    if (object.kind == Kind::dictionary && !keysDistinct(object, left))
        return false;
    --left.depth;
    for (std::uint32_t i = 0; i < object.count; ++i) {
        if (!withinLimits(object.kind == Kind::array ? element(object, i) : value(object, i), left))
            return false;
    }
    ++left.depth;
    return true;
}

bool BinaryPlistReader::keysDistinct(const Object& dictionary, Limits& left) const {
    std::vector<std::string_view> keys;
    std::forward_list<std::string> converted;
    keys.reserve(dictionary.count);
    for (std::uint32_t i = 0; i < dictionary.count; ++i) {
        const Object& key = objects_[this->key(dictionary, i)];
        if (key.count > left.keyBytes)
            return false;
        left.keyBytes -= key.count;
        if (isPlainAscii(key)) {
            keys.push_back(asText(data(key)));
        } else if (auto keyText = text(key)) {
            keys.push_back(converted.emplace_front(std::move(*keyText)));
        } else {
            return false;
        }
    }
    std::sort(keys.begin(), keys.end());
    return std::adjacent_find(keys.begin(), keys.end()) == keys.end();
}

std::uint64_t BinaryPlistReader::bigEndian(std::size_t at, std::size_t size) const {
    if (size == 1)
        return bytes_[at];
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i)
        number = number << 8 | bytes_[at + i];
    return number;
}

BinaryPlistReader::Index BinaryPlistReader::reference(std::uint32_t offset,
                                                      std::uint32_t position) const {
    return static_cast<Index>(bigEndian(offset + position * referenceSize_, referenceSize_));
}

BinaryPlistReader::Index BinaryPlistReader::element(const Object& array,
                                                    std::uint32_t position) const {
    return reference(array.offset, position);
}

BinaryPlistReader::Index BinaryPlistReader::key(const Object& dictionary,
                                                std::uint32_t position) const {
    return reference(dictionary.offset, position);
}

BinaryPlistReader::Index BinaryPlistReader::value(const Object& dictionary,
                                                  std::uint32_t position) const {
    return reference(dictionary.offset, dictionary.count + position);
}

std::optional<BinaryPlistReader::Index> BinaryPlistReader::find(const Object& dictionary,
                                                                std::string_view wanted) const {
    for (std::uint32_t i = 0; i < dictionary.count; ++i) {
        if (isText(key(dictionary, i), wanted))
            return value(dictionary, i);
    }
    return std::nullopt;
}

bool BinaryPlistReader::isText(Index index, std::string_view wanted) const {
    const Object& object = objects_[index];
    if (object.kind == Kind::asciiText)
        return asText(data(object)) == wanted;
    // Writers may keep ASCII in code units; a text of another length is not even converted.
    return object.kind == Kind::utf16Text && object.count == wanted.size() &&
           text(object) == wanted;
}

bool BinaryPlistReader::isPlainAscii(const Object& object) const {
    if (object.kind != Kind::asciiText)
        return false;
    const std::string_view content = asText(data(object));
    return isAscii(content) && content.find('\0') == content.npos;
}

std::optional<std::string> BinaryPlistReader::text(const Object& object) const {
    if (object.kind == Kind::asciiText)
        return isPlainAscii(object) ? std::optional(toString(data(object))) : std::nullopt;
    if (object.kind != Kind::utf16Text)
        return std::nullopt;
    const auto unitAt = [&](std::uint32_t position) {
        return static_cast<std::uint32_t>(bigEndian(object.offset + 2 * std::size_t{position}, 2));
    };
    std::string out;
    out.reserve(object.count);
    for (std::uint32_t i = 0; i < object.count; ++i) {
        std::uint32_t point = unitAt(i);
        if (point == 0 || (point >= 0xdc00 && point < 0xe000))
            return std::nullopt;
        if (point >= 0xd800 && point < 0xdc00) {
            const std::uint32_t low = ++i < object.count ? unitAt(i) : 0;
            if (low < 0xdc00 || low >= 0xe000)
                return std::nullopt;
            point = 0x10000 + ((point - 0xd800) << 10) + (low - 0xdc00);
        }
        appendUtf8(point, out);
    }
    return out;
}

}  // namespace quorl
