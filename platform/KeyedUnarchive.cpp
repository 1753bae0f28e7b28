#include "BinaryPlistReader.h"
#include "KeyedArchive.h"
#include "KeyedArchiveFormat.h"
#include "PropertyListDate.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quorl {
namespace {

using namespace keyedArchive;

constexpr std::size_t mostDecodedBytes = 4 << 20;
// An object of the graph is several values of the property list: itself, its fields, a reference
// by its number wherever it is held.
constexpr BinaryPlistReader::Limits archiveLimits = {
    .bytes = largestArchive, .values = 5 * mostValues, .keyBytes = mostDecodedBytes, .depth = 8};
// No object of the known classes has more than three; to look through more is a peer's play.
constexpr std::uint32_t mostFields = 16;

enum class ObjectClass { dictionary, array, text, data, date, null };

std::optional<ObjectClass> classNamed(std::string_view name) {
    using Entry = std::pair<std::string_view, ObjectClass>;
    constexpr std::array<Entry, 10> known = {{
        {"NSDictionary", ObjectClass::dictionary},
        {"NSMutableDictionary", ObjectClass::dictionary},
        {"NSArray", ObjectClass::array},
        {"NSMutableArray", ObjectClass::array},
        {"NSString", ObjectClass::text},
        {"NSMutableString", ObjectClass::text},
        {"NSData", ObjectClass::data},
        {"NSMutableData", ObjectClass::data},
        {"NSDate", ObjectClass::date},
        {"NSNull", ObjectClass::null},
    }};
    const auto* found = std::find_if(known.begin(), known.end(),
                                     [name](const Entry& entry) { return entry.first == name; });
    return found == known.end() ? std::nullopt : std::optional(found->second);
}

/// Decodes the object graph of one archive. Any step that gives nothing ends it as a whole.
class Decoder {
  public:
    using Kind = BinaryPlistReader::Kind;
    using Object = BinaryPlistReader::Object;
    using Index = BinaryPlistReader::Index;

    explicit Decoder(const BinaryPlistReader& reader) : reader_(reader) {}

    std::optional<Value> root() {
        const Object& top = reader_.at(reader_.top());
        if (top.kind != Kind::dictionary)
            return std::nullopt;
        const Object* version = entry(top, "$version", Kind::integer);
        const auto archiver = reader_.find(top, "$archiver");
        const Object* roots = entry(top, "$top", Kind::dictionary);
        objects_ = entry(top, "$objects", Kind::array);
        if (!version || version->integer != archiverVersion || !archiver ||
            !reader_.isText(*archiver, archiverName) || !roots || !objects_ ||
            objects_->count == 0 || !reader_.isText(reader_.element(*objects_, 0), nullMarker))
            return std::nullopt;
        const Object* rootUid = entry(*roots, "root", Kind::uid);
        std::optional<Value> value = rootUid ? decode(*rootUid, 1) : std::nullopt;
        return value && value->is_object() ? value : std::nullopt;
    }

  private:
    /// The dictionary's entry of that kind, or null.
    const Object* entry(const Object& dictionary, std::string_view key, Kind kind) const {
        const auto index =
            dictionary.count <= mostFields ? reader_.find(dictionary, key) : std::nullopt;
        if (!index || reader_.at(*index).kind != kind)
            return nullptr;
        return &reader_.at(*index);
    }

    std::optional<Value> decode(const Object& uid, int depth) {
        if (uid.kind != Kind::uid || uid.unsignedInteger >= objects_->count ||
            depth > deepestObject || ++values_ > mostValues)
            return std::nullopt;
        if (uid.unsignedInteger == 0)
            return Value();
        const Object& object =
            reader_.at(reader_.element(*objects_, static_cast<std::uint32_t>(uid.unsignedInteger)));
        switch (object.kind) {
            case Kind::boolean:
                return Value(object.integer != 0);
            case Kind::integer:
                return Value(object.integer);
            case Kind::unsignedInteger:
                return Value(object.unsignedInteger);
            case Kind::real:
                return std::isfinite(object.real) ? std::optional(Value(object.real))
                                                  : std::nullopt;
            case Kind::date:
                return date(object.real);
            case Kind::data:
                return data(object);
            case Kind::asciiText:
            case Kind::utf16Text:
                return text(object);
            case Kind::dictionary:
                return instance(object, depth);
            case Kind::uid:
            case Kind::array:
                break;
        }
        return std::nullopt;
    }

    std::optional<Value> instance(const Object& object, int depth) {
        const auto objectClass = classOf(object);
        if (!objectClass)
            return std::nullopt;
        switch (*objectClass) {
            case ObjectClass::dictionary:
                return dictionary(object, depth);
            case ObjectClass::array:
                return array(object, depth);
            case ObjectClass::text: {
                const auto content = reader_.find(object, "NS.string");
                return content ? text(reader_.at(*content)) : std::nullopt;
            }
            case ObjectClass::data: {
                const Object* content = entry(object, "NS.data", Kind::data);
                return content ? data(*content) : std::nullopt;
            }
            case ObjectClass::date: {
                const auto time = reader_.find(object, "NS.time");
                if (!time)
                    return std::nullopt;
                const Object& seconds = reader_.at(*time);
                if (seconds.kind == Kind::real)
                    return date(seconds.real);
                return seconds.kind == Kind::integer ? date(static_cast<double>(seconds.integer))
                                                     : std::nullopt;
            }
            case ObjectClass::null:
                return Value();
        }
        return std::nullopt;
    }

    std::optional<ObjectClass> classOf(const Object& object) const {
        const Object* uid = entry(object, "$class", Kind::uid);
        if (!uid || uid->unsignedInteger == 0 || uid->unsignedInteger >= objects_->count)
            return std::nullopt;
        const Object& description = reader_.at(
            reader_.element(*objects_, static_cast<std::uint32_t>(uid->unsignedInteger)));
        if (description.kind != Kind::dictionary)
            return std::nullopt;
        const auto nameIndex = reader_.find(description, "$classname");
        const Object* chain = entry(description, "$classes", Kind::array);
        if (!nameIndex || !chain || chain->count == 0)
            return std::nullopt;
        const auto name = reader_.text(reader_.at(*nameIndex));
        if (!name || !reader_.isText(reader_.element(*chain, 0), *name))
            return std::nullopt;
        return classNamed(*name);
    }

    std::optional<Value> dictionary(const Object& object, int depth) {
        const Object* keys = entry(object, "NS.keys", Kind::array);
        const Object* values = entry(object, "NS.objects", Kind::array);
        if (!keys || !values || keys->count != values->count)
            return std::nullopt;
        Value result = Value::object();
        auto& members = result.get_ref<Value::object_t&>();
        for (std::uint32_t i = 0; i < keys->count; ++i) {
            auto key = decode(reader_.at(reader_.element(*keys, i)), depth + 1);
            if (!key || !key->is_string())
                return std::nullopt;
            auto value = decode(reader_.at(reader_.element(*values, i)), depth + 1);
            if (!value ||
                !members.try_emplace(std::move(key->get_ref<std::string&>()), std::move(*value))
                     .second)
                return std::nullopt;
        }
        return result;
    }

    std::optional<Value> array(const Object& object, int depth) {
        const Object* entries = entry(object, "NS.objects", Kind::array);
        if (!entries)
            return std::nullopt;
        Value result = Value::array();
        for (std::uint32_t i = 0; i < entries->count; ++i) {
            auto value = decode(reader_.at(reader_.element(*entries, i)), depth + 1);
            if (!value)
                return std::nullopt;
            result.push_back(std::move(*value));
        }
        return result;
    }

    // Shared references make little input decode to much.
    bool countBytes(std::size_t bytes) {
        decodedBytes_ += bytes;
        return decodedBytes_ <= mostDecodedBytes;
    }

    std::optional<Value> text(const Object& object) {
        auto content = reader_.text(object);
        if (!content || !countBytes(content->size()))
            return std::nullopt;
        return std::optional<Value>(std::in_place, std::move(*content));
    }

    std::optional<Value> data(const Object& object) {
        if (!countBytes(object.count))
            return std::nullopt;
        const ByteView content = reader_.data(object);
        return Value::binary(Bytes(content.begin(), content.end()));
    }

    static std::optional<Value> date(double seconds) {
        auto content = propertyListDateText(seconds);
        return content ? std::optional(Value(std::move(*content))) : std::nullopt;
    }

    const BinaryPlistReader& reader_;
    const Object* objects_ = nullptr;
    int values_ = 0;
    std::size_t decodedBytes_ = 0;
};

}  // namespace

std::optional<Value> unarchive(ByteView archive) {
    const auto reader = BinaryPlistReader::open(archive, archiveLimits);
    return reader ? Decoder(*reader).root() : std::nullopt;
}

}  // namespace quorl
