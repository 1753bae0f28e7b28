#include "PropertyList.h"

#include "AtomicFile.h"
#include "BinaryPropertyList.h"
#include "Handle.h"
#include "PropertyListDate.h"
#include "Utf8.h"
#include "XmlPlistCheck.h"

#include <plist/plist.h>

#include <cmath>
#include <memory>

namespace quorl {
namespace {

constexpr std::size_t largestFile = 4 << 20;
constexpr std::size_t deepest = 64;

using Plist = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeWith<plist_free>>;
using XmlText = Handle<char, plist_to_xml_free>;
using AllocatedText = Handle<char, ::free>;

Value toValue(plist_t node);

Value dictionaryValue(plist_t node) {
    Value dictionary = Value::object();
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const AllocatedText guard(static_cast<char*>(iterator));
    for (;;) {
        char* key = nullptr;
        plist_t entry = nullptr;
        plist_dict_next_item(node, iterator, &key, &entry);
        const AllocatedText keyGuard(key);
        if (!entry)
            return dictionary;
        if (key)
            dictionary[key] = toValue(entry);
    }
}

Value toValue(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            std::uint8_t value = 0;
            plist_get_bool_val(node, &value);
            return value != 0;
        }
        case PLIST_UINT: {
            std::uint64_t value = 0;
            plist_get_uint_val(node, &value);
            // The library gives negative numbers in the same 64 bits.
            return static_cast<std::int64_t>(value);
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            return value;
        }
        case PLIST_STRING: {
            std::uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            return text ? std::string(text, length) : std::string();
        }
        case PLIST_DATA: {
            std::uint64_t length = 0;
            const char* data = plist_get_data_ptr(node, &length);
            return Value::binary(data ? Bytes(data, data + length) : Bytes());
        }
        case PLIST_DATE: {
            std::int32_t seconds = 0;
            std::int32_t microseconds = 0;
            plist_get_date_val(node, &seconds, &microseconds);
            return propertyListDateText(seconds).value_or("");
        }
        case PLIST_DICT:
            return dictionaryValue(node);
        case PLIST_ARRAY: {
            Value list = Value::array();
            for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i)
                list.push_back(toValue(plist_array_get_item(node, i)));
            return list;
        }
        case PLIST_UID:
        case PLIST_KEY:
        case PLIST_NONE:
            break;
    }
    return {};
}

Plist fromValue(const Value& value) {
    switch (value.type()) {
        case Value::value_t::string:
            return Plist(plist_new_string(value.get_ref<const std::string&>().c_str()));
        case Value::value_t::boolean:
            return Plist(plist_new_bool(value.get<bool>() ? 1 : 0));
        case Value::value_t::number_integer:
        case Value::value_t::number_unsigned:
            return Plist(plist_new_uint(value.get<std::uint64_t>()));
        case Value::value_t::number_float:
            return Plist(plist_new_real(value.get<double>()));
        case Value::value_t::binary: {
            const auto& data = value.get_binary();
            return Plist(plist_new_data(reinterpret_cast<const char*>(data.data()), data.size()));
        }
        case Value::value_t::object: {
            Plist dictionary(plist_new_dict());
            for (const auto& [key, entry] : value.items()) {
                if (Plist item = fromValue(entry))
                    plist_dict_set_item(dictionary.get(), key.c_str(), item.release());
            }
            return dictionary;
        }
        case Value::value_t::array: {
            Plist list(plist_new_array());
            for (const Value& entry : value) {
                if (Plist item = fromValue(entry))
                    plist_array_append_item(list.get(), item.release());
            }
            return list;
        }
        case Value::value_t::null:
        case Value::value_t::discarded:
            break;
    }
    return nullptr;
}

std::optional<Value> parseXml(std::string_view xml) {
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";
    if (xml.starts_with(byteOrderMark))
        xml.remove_prefix(byteOrderMark.size());
    // The library trusts its input: it takes halves of documents, and texts that are no text.
    if (!isPlainText(xml) || !isWholeXmlPlist(xml, deepest))
        return std::nullopt;
    plist_t node = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &node);
    const Plist owned(node);
    return owned ? std::optional(toValue(node)) : std::nullopt;
}

// What XML allows a document to hold; readers refuse a file with anything else as a whole.
bool isXmlText(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::int32_t point = nextCodePoint(text, at);
        if (point < 0x20 && point != '\t' && point != '\n' && point != '\r')
            return false;
        if (point == 0xfffe || point == 0xffff)
            return false;
    }
    return true;
}

bool canBeWritten(const Value& value, std::size_t depth) {
    if (value.is_string())
        return isXmlText(value.get_ref<const std::string&>());
    // The library would write a larger one as a negative number.
    if (value.is_number_unsigned())
        return value.get<std::uint64_t>() <= INT64_MAX;
    if (value.is_number_float())
        return std::isfinite(value.get<double>());
    if (!value.is_structured())
        return true;
    if (depth == deepest)
        return false;
    for (const auto& [key, entry] : value.items()) {
        if ((value.is_object() && !isXmlText(key)) || !canBeWritten(entry, depth + 1))
            return false;
    }
    return true;
}

}  // namespace

tl::expected<Value, std::string> parsePropertyList(ByteView content) {
    if (content.size() > largestFile)
        return tl::unexpected(std::string("too large"));
    const std::string_view text = asText(content);
    auto value = text.starts_with("bplist") ? parseBinaryPropertyList(content) : parseXml(text);
    if (!value)
        return tl::unexpected(std::string("no valid property list"));
    return std::move(*value);
}

tl::expected<Value, std::string> readPropertyListFile(const std::string& path) {
    return readFile(path, largestFile).and_then([](const Bytes& content) {
        return parsePropertyList(content);
    });
}

std::optional<std::string> xmlPropertyList(const Value& value) {
    // The root element is a level too.
    const Plist plist = canBeWritten(value, 2) ? fromValue(value) : nullptr;
    if (!plist)
        return std::nullopt;
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(plist.get(), &xml, &length);
    const XmlText text(xml);
    return text ? std::optional(std::string(text.get(), length)) : std::nullopt;
}

tl::expected<void, std::string> writePropertyListFile(const std::string& path, const Value& value) {
    const auto xml = xmlPropertyList(value);
    if (!xml)
        return tl::unexpected(std::string("holds what no XML property list can carry"));
    return replaceFile(path, asBytes(*xml));
}

}  // namespace quorl
