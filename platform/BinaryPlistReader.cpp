#include "BinaryPlistReader.h"

#include <algorithm>
#include <bit>

namespace quorl {
namespace {

constexpr std::string_view magic = "bplist00";
constexpr std::size_t trailerSize = 32;
constexpr std::size_t largestInput = 1 << 20;
constexpr std::uint64_t mostObjects = 20'000;
constexpr std::uint32_t mostValues = 20'000;
constexpr std::uint64_t mostReferences = 2 * mostObjects;
constexpr int deepest = 8;
constexpr std::uint8_t countFollows = 0x0f;

void appendUtf8(std::uint32_t codePoint, std::string& out) {
    const auto put = [&out](std::uint32_t byte) { out += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        put(codePoint);
    } else if (codePoint < 0x800) {
        put(0xc0 | codePoint >> 6);
        put(0x80 | (codePoint & 0x3f));
    } else if (codePoint < 0x10000) {
        put(0xe0 | codePoint >> 12);
        put(0x80 | (codePoint >> 6 & 0x3f));
        put(0x80 | (codePoint & 0x3f));
    } else {
        put(0xf0 | codePoint >> 18);
        put(0x80 | (codePoint >> 12 & 0x3f));
        put(0x80 | (codePoint >> 6 & 0x3f));
        put(0x80 | (codePoint & 0x3f));
    }
}

}  // namespace

std::optional<BinaryPlistReader> BinaryPlistReader::open(ByteView bytes) {
    BinaryPlistReader reader(bytes);
    std::uint32_t visits = 0;
    if (!reader.readTrailer() || !reader.referencesInRange() ||
        !reader.nestingBounded(reader.top_, 1, visits))
        return std::nullopt;
    return reader;
}

bool BinaryPlistReader::readTrailer() {
    const std::size_t size = bytes_.size();
    if (size < magic.size() + trailerSize || size > largestInput ||
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
        objects == 0 || objects > mostObjects || top >= objects || table < magic.size() ||
        table > trailer || trailer - table != objects * offsetSize_)
        return false;
    offsetTable_ = table;
    top_ = static_cast<Index>(top);
    objects_.reserve(objects);
    for (std::uint64_t i = 0; i < objects; ++i) {
        const std::uint64_t offset = bigEndian(table + i * offsetSize_, offsetSize_);
        if (offset < magic.size() || offset >= table)
            return false;
        const auto object = readObject(offset);
        if (!object)
            return false;
        objects_.push_back(*object);
    }
    return true;
}

std::optional<BinaryPlistReader::Object> BinaryPlistReader::readObject(std::size_t offset) {
    const std::uint8_t marker = bytes_[offset];
    const std::uint8_t low = marker & 0x0f;
    std::size_t at = offset + 1;
    const auto fits = [&](std::uint64_t size) { return size <= offsetTable_ - at; };
    Object object;

    // What a counted object needs behind its count: so many entries of so many bytes.
    const auto counted = [&](Kind kind, std::uint64_t entrySize) -> std::optional<Object> {
        object.kind = kind;
        if (!readCount(low, at, object.count) || !fits(object.count * entrySize))
            return std::nullopt;
        object.offset = static_cast<std::uint32_t>(at);
        return object;
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
                object.integer = static_cast<std::int64_t>(bigEndian(at, size));
                return object;
            }
            const std::uint64_t number = bigEndian(at + 8, 8);
            if (bigEndian(at, 8) != 0)
                return std::nullopt;
            if (number > INT64_MAX) {
                object.kind = Kind::unsignedInteger;
                object.unsignedInteger = number;
            } else {
                object.integer = static_cast<std::int64_t>(number);
            }
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
                object.real = std::bit_cast<float>(static_cast<std::uint32_t>(bigEndian(at, 4)));
            else
                object.real = std::bit_cast<double>(bigEndian(at, 8));
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
            object.unsignedInteger = bigEndian(at, size);
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
    return value <= largestInput;
}

// Overlapping objects could name the same references over and over, so their sum is bounded too.
bool BinaryPlistReader::referencesInRange() const {
    std::uint64_t references = 0;
    for (const Object& object : objects_) {
        if (object.kind != Kind::array && object.kind != Kind::dictionary)
            continue;
        const std::uint32_t count =
            object.kind == Kind::dictionary ? 2 * object.count : object.count;
        references += count;
        if (references > mostReferences)
            return false;
        for (std::uint32_t i = 0; i < count; ++i) {
            if (bigEndian(object.offset + i * referenceSize_, referenceSize_) >= objects_.size())
                return false;
        }
    }
    return true;
}

bool BinaryPlistReader::nestingBounded(Index index, int depth, std::uint32_t& visits) const {
    if (depth > deepest || ++visits > mostValues)
        return false;
    const Object& object = objects_[index];
    if (object.kind == Kind::array) {
        for (std::uint32_t i = 0; i < object.count; ++i) {
            if (!nestingBounded(element(object, i), depth + 1, visits))
                return false;
        }
    } else if (object.kind == Kind::dictionary) {
        if (!keysDistinct(object))
            return false;
        for (std::uint32_t i = 0; i < object.count; ++i) {
            if (!nestingBounded(value(object, i), depth + 1, visits))
                return false;
        }
    }
    return true;
}

bool BinaryPlistReader::keysDistinct(const Object& dictionary) const {
    std::vector<std::string> keys;
    for (std::uint32_t i = 0; i < dictionary.count; ++i) {
        auto keyText = text(objects_[key(dictionary, i)]);
        if (!keyText)
            return false;
        keys.push_back(std::move(*keyText));
    }
    std::sort(keys.begin(), keys.end());
    return std::adjacent_find(keys.begin(), keys.end()) == keys.end();
}

std::uint64_t BinaryPlistReader::bigEndian(std::size_t at, std::size_t size) const {
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
    return object.kind == Kind::utf16Text && text(object) == wanted;
}

std::optional<std::string> BinaryPlistReader::text(const Object& object) const {
    std::string out;
    if (object.kind == Kind::asciiText) {
        const ByteView bytes = data(object);
        if (std::any_of(bytes.begin(), bytes.end(),
                        [](std::uint8_t byte) { return byte == 0 || byte >= 0x80; }))
            return std::nullopt;
        return toString(bytes);
    }
    if (object.kind != Kind::utf16Text)
        return std::nullopt;
    out.reserve(object.count);
    for (std::uint32_t i = 0; i < object.count; ++i) {
        auto unit = static_cast<std::uint32_t>(bigEndian(object.offset + 2 * std::size_t{i}, 2));
        if (unit == 0 || (unit >= 0xdc00 && unit < 0xe000))
            return std::nullopt;
        if (unit >= 0xd800 && unit < 0xdc00) {
            if (++i == object.count)
                return std::nullopt;
            const auto low =
                static_cast<std::uint32_t>(bigEndian(object.offset + 2 * std::size_t{i}, 2));
            if (low < 0xdc00 || low >= 0xe000)
                return std::nullopt;
            unit = 0x10000 + ((unit - 0xd800) << 10) + (low - 0xdc00);
        }
        appendUtf8(unit, out);
    }
    return out;
}

}  // namespace quorl
