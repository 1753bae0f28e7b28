#include "KeyedArchive.h"

#include "BinaryPlistWriter.h"
#include "KeyedArchiveFormat.h"
#include "Utf8.h"

#include <cmath>

namespace quorl {
namespace {

using namespace keyedArchive;

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

std::optional<Bytes> archive(const Value& dictionary) {
    return Encoder().encode(dictionary);
}

}  // namespace quorl
