#include "KeyedArchive.h"

#include "BinaryPlistReader.h"
#include "BinaryPlistWriter.h"
#include "PropertyListDate.h"
#include "Utf8.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quorl {
namespace {

constexpr int deepestObject = 32;
constexpr int mostValues = 20'000;
constexpr std::size_t mostDecodedBytes = 4 << 20;
constexpr std::size_t largestArchive = 1 << 20;
// An object of the graph is several values of the property list: itself, its fields, a reference
// by its number wherever it is held.
constexpr BinaryPlistReader::Limits archiveLimits = {
    .bytes = largestArchive, .values = 5 * mostValues, .keyBytes = mostDecodedBytes, .depth = 8};
// No object of the known classes has more than three; to look through more is a peer's play.
constexpr std::uint32_t mostFields = 16;
constexpr std::int64_t archiverVersion = 100000;
constexpr std::string_view archiverName = "NSKeyedArchiver";
constexpr std::string_view nullMarker = "$null";

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

/// Lays a value out as the archiver does: each object in `$objects` by its number, containers
/// naming their entries by number.
class Encoder {
  public:
    using Index = BinaryPlistWriter::Index;
    using Uid = std::uint32_t;

    std::optional<Bytes> encode(const Value& dictionary) {
        objects_.push_back(writer_.addText(nullMarker));
        if (!dictionary.is_object() || !add(dictionary, 1))
            return std::nullopt;
        const Index top = writer_.addDictionary({writer_.addText("root")}, {uid(1)});
        const Index all = writer_.addArray(objects_);
        const Index root = writer_.addDictionary(
            {writer_.addText("$version"), writer_.addText("$archiver"), writer_.addText("$top"),
             writer_.addText("$objects")},
            {writer_.addInteger(archiverVersion), writer_.addText(archiverName), top, all});
        Bytes bytes = writer_.finish(root);
        return bytes.size() <= largestArchive ? std::optional(std::move(bytes)) : std::nullopt;
    }

  private:
    Uid place(Index object) {
        objects_.push_back(object);
        return static_cast<Uid>(objects_.size() - 1);
    }
    Index uid(Uid number) { return writer_.addUid(number); }

    std::optional<Uid> add(const Value& value, int depth) {
        if (depth > deepestObject || objects_.size() > mostValues)
            return std::nullopt;
        switch (value.type()) {
            case Value::value_t::null:
                return place(writer_.addDictionary({classKey()}, {uid(nullClass())}));
            case Value::value_t::boolean:
                return place(writer_.addBoolean(value.get<bool>()));
            case Value::value_t::number_integer:
                return place(writer_.addInteger(value.get<std::int64_t>()));
            case Value::value_t::number_unsigned:
                return place(writer_.addUnsigned(value.get<std::uint64_t>()));
            case Value::value_t::number_float:
                if (!std::isfinite(value.get<double>()))
                    return std::nullopt;
                return place(writer_.addReal(value.get<double>()));
            case Value::value_t::string:
                return addText(value.get_ref<const std::string&>());
            case Value::value_t::binary:
                return place(writer_.addData(value.get_binary()));
            case Value::value_t::array:
                return addArray(value, depth);
            case Value::value_t::object:
                return addDictionary(value, depth);
            case Value::value_t::discarded:
                break;
        }
        return std::nullopt;
    }

    std::optional<Uid> addText(std::string_view text) {
        if (text == nullMarker || !isPlainText(text))
            return std::nullopt;
        return place(writer_.addText(text));
    }

    std::optional<Uid> addArray(const Value& value, int depth) {
        const Uid self = place(0);
        std::vector<Index> entries;
        for (const Value& item : value) {
            const auto number = add(item, depth + 1);
            if (!number)
                return std::nullopt;
            entries.push_back(uid(*number));
        }
        objects_[self] = writer_.addDictionary({objectsKey(), classKey()},
                                               {writer_.addArray(entries), uid(arrayClass())});
        return self;
    }

    std::optional<Uid> addDictionary(const Value& value, int depth) {
        const Uid self = place(0);
        std::vector<Index> keys;
        std::vector<Index> entries;
        for (const auto& [key, item] : value.get_ref<const Value::object_t&>()) {
            const auto keyNumber = addText(key);
            const auto number = keyNumber ? add(item, depth + 1) : std::nullopt;
            if (!number)
                return std::nullopt;
            keys.push_back(uid(*keyNumber));
            entries.push_back(uid(*number));
        }
        objects_[self] = writer_.addDictionary(
            {keysKey(), objectsKey(), classKey()},
            {writer_.addArray(keys), writer_.addArray(entries), uid(dictionaryClass())});
        return self;
    }

    // Keys and classes stand once in the archive, made when they are first needed.
    Index once(std::optional<Index>& kept, std::string_view text) {
        if (!kept)
            kept = writer_.addText(text);
        return *kept;
    }
    Index keysKey() { return once(keysKey_, "NS.keys"); }
    Index objectsKey() { return once(objectsKey_, "NS.objects"); }
    Index classKey() { return once(classKey_, "$class"); }
    Uid classNumber(std::optional<Uid>& kept, std::string_view name) {
        if (!kept) {
            const Index nameText = writer_.addText(name);
            const Index chain = writer_.addArray({nameText, writer_.addText("NSObject")});
            kept = place(writer_.addDictionary(
                {writer_.addText("$classname"), writer_.addText("$classes")}, {nameText, chain}));
        }
        return *kept;
    }
    Uid dictionaryClass() { return classNumber(dictionaryClass_, "NSDictionary"); }
    Uid arrayClass() { return classNumber(arrayClass_, "NSArray"); }
    Uid nullClass() { return classNumber(nullClass_, "NSNull"); }

    BinaryPlistWriter writer_;
    std::vector<Index> objects_;
    std::optional<Index> keysKey_, objectsKey_, classKey_;
    std::optional<Uid> dictionaryClass_, arrayClass_, nullClass_;
};

}  // namespace

std::optional<Value> unarchive(ByteView archive) {
    const auto reader = BinaryPlistReader::open(archive, archiveLimits);
    return reader ? Decoder(*reader).root() : std::nullopt;
}

std::optional<Bytes> archive(const Value& dictionary) {
    return Encoder().encode(dictionary);
}

}  // namespace quorl
