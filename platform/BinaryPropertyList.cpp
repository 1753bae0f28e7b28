#include "BinaryPropertyList.h"

#include "BinaryPlistReader.h"
#include "PropertyList.h"
#include "PropertyListDate.h"

namespace quorl {
namespace {

constexpr std::size_t mostDecodedBytes = 16 << 20;
constexpr BinaryPlistReader::Limits fileLimits = {
    .bytes = 4 << 20, .values = 100'000, .keyBytes = mostDecodedBytes, .depth = 64};

class Decoder {
  public:
    using Kind = BinaryPlistReader::Kind;
    using Object = BinaryPlistReader::Object;

    explicit Decoder(const BinaryPlistReader& reader) : reader_(reader) {}

    /// The reader has bounded depth and visits already.
    std::optional<Value> decode(BinaryPlistReader::Index index) {
        const Object& object = reader_.at(index);
        switch (object.kind) {
            case Kind::boolean:
                return Value(object.integer != 0);
            case Kind::integer:
                return Value(object.integer);
            case Kind::unsignedInteger:
                return Value(object.unsignedInteger);
            case Kind::uid:
                return Value{{"CF$UID", object.unsignedInteger}};
            case Kind::real:
                return Value(object.real);
            case Kind::date:
                return date(propertyListDateText(object.real));
            case Kind::data: {
                const ByteView content = reader_.data(object);
                if (!takeBytes(content.size()))
                    return std::nullopt;
                return Value::binary(Bytes(content.begin(), content.end()));
            }
            case Kind::asciiText:
            case Kind::utf16Text:
                return counted(reader_.text(object));
            case Kind::array:
                return array(object);
            case Kind::dictionary:
                return dictionary(object);
        }
        return std::nullopt;
    }

  private:
    std::optional<Value> array(const Object& object) {
        Value result = Value::array();
        for (std::uint32_t i = 0; i < object.count; ++i) {
            auto entry = decode(reader_.element(object, i));
            if (!entry)
                return std::nullopt;
            result.push_back(std::move(*entry));
        }
        return result;
    }

    std::optional<Value> dictionary(const Object& object) {
        Value result = Value::object();
        for (std::uint32_t i = 0; i < object.count; ++i) {
            const auto key = reader_.text(reader_.at(reader_.key(object, i)));
            auto entry = decode(reader_.value(object, i));
            if (!key || !entry)
                return std::nullopt;
            result[*key] = std::move(*entry);
        }
        return result;
    }

    std::optional<Value> date(const std::optional<std::string>& text) {
        return text && takeBytes(text->size()) ? std::optional(dateValue(*text)) : std::nullopt;
    }

    std::optional<Value> counted(std::optional<std::string> text) {
        if (!text || !takeBytes(text->size()))
            return std::nullopt;
        return Value(std::move(*text));
    }

    // Shared references make little input decode to much.
    bool takeBytes(std::size_t bytes) {
        decodedBytes_ += bytes;
        return decodedBytes_ <= mostDecodedBytes;
    }

    const BinaryPlistReader& reader_;
    std::size_t decodedBytes_ = 0;
};

}  // namespace

std::optional<Value> parseBinaryPropertyList(ByteView content) {
    const auto reader = BinaryPlistReader::open(content, fileLimits);
    return reader ? Decoder(*reader).decode(reader->top()) : std::nullopt;
}

}  // namespace quorl
