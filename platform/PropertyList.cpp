#include "PropertyList.h"

#include "AtomicFile.h"
#include "BinaryPropertyList.h"
#include "Handle.h"
#include "Utf8.h"
#include "XmlPlistCheck.h"

#include <fmt/format.h>
#include <plist/plist.h>

#include <algorithm>
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

// What stands in a scalar's element. The library's own numbers and dates are too narrow.
std::string scalarText(plist_t node) {
    const Plist copy(plist_copy(node));
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(copy.get(), &xml, &length);
    const XmlText owned(xml);
    const std::string_view text = owned ? std::string_view(owned.get(), length) : "";
    // The last element but the root's end, and what stands before its own.
    const std::size_t end = text.rfind("</", text.rfind("</plist") - 1);
    const std::size_t start = text.rfind('>', end);
    if (end == text.npos || start == text.npos)
        return "";
    return std::string(text.substr(start + 1, end - start - 1));
}

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
            // The library gives negative numbers in the same 64 bits as those beyond 63 of them.
            const auto number = static_cast<std::int64_t>(value);
            return number >= 0 || scalarText(node).starts_with('-') ? Value(number) : Value(value);
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
            return dateValue(scalarText(node));
        }
        case PLIST_DICT:
            return dictionaryValue(node);
        case PLIST_ARRAY: {
            Value list = Value::array();
            for (std::uint32_t i = 0; i < plist_array_get_size(node); ++i)
                list.push_back(toValue(plist_array_get_item(node, i)));
            return list;
        }
        case PLIST_UID: {
            std::uint64_t value = 0;
            plist_get_uid_val(node, &value);
            return {{"CF$UID", value}};
        }
        case PLIST_KEY:
        case PLIST_NONE:
            break;
    }
    return {};
}

// Escaped as XML wants it; a carriage return too, which readers would take for a line feed.
std::string escapedText(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '\r':
                out += "&#13;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

// Written by hand: the library's own writer loses dates after 2068 and numbers beyond 63 bits.
class XmlWriter {
  public:
    void write(const Value& value, std::size_t depth) {
        switch (value.type()) {
            case Value::value_t::string:
                return element(depth, "string", escapedText(value.get_ref<const std::string&>()));
            case Value::value_t::boolean:
                return line(depth, value.get<bool>() ? "<true/>" : "<false/>");
            case Value::value_t::number_integer:
                return element(depth, "integer", std::to_string(value.get<std::int64_t>()));
            case Value::value_t::number_unsigned:
                return element(depth, "integer", std::to_string(value.get<std::uint64_t>()));
            case Value::value_t::number_float:
                return element(depth, "real", fmt::format("{}", value.get<double>()));
            case Value::value_t::binary:
                return binary(value.get_binary(), depth);
            case Value::value_t::object:
                line(depth, "<dict>");
                for (const auto& [key, entry] : value.items()) {
                    if (entry.is_null())
                        continue;
                    element(depth + 1, "key", escapedText(key));
                    write(entry, depth + 1);
                }
                return line(depth, "</dict>");
            case Value::value_t::array:
                line(depth, "<array>");
                for (const Value& entry : value)
                    write(entry, depth + 1);
                return line(depth, "</array>");
            case Value::value_t::null:
            case Value::value_t::discarded:
                return;
        }
    }
    std::string take() { return std::move(out_); }

  private:
    void line(std::size_t depth, std::string_view text) {
        out_.append(depth, '\t').append(text) += '\n';
    }
    void element(std::size_t depth, std::string_view name, std::string_view content) {
        line(depth, fmt::format("<{0}>{1}</{0}>", name, content));
    }
    void binary(const Value::binary_t& data, std::size_t depth) {
        if (data.has_subtype() && data.subtype() == dateSubtype)
            return element(depth, "date", std::string(data.begin(), data.end()));
        element(depth, "data", base64(data));
    }
    static std::string base64(ByteView bytes) {
        constexpr std::string_view letters =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string out;
        for (std::size_t at = 0; at < bytes.size(); at += 3) {
            const ByteView three = bytes.subspan(at, std::min<std::size_t>(3, bytes.size() - at));
            std::uint32_t bits = 0;
            for (std::size_t i = 0; i < 3; ++i)
                bits = bits << 8 | (i < three.size() ? three[i] : 0U);
            for (std::size_t i = 0; i < 4; ++i)
                out += i <= three.size() ? letters[bits >> (18 - 6 * i) & 63] : '=';
        }
        return out;
    }

    std::string out_;
};

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

// "1999-12-31T23:59:59Z": the library reads a year of any other form as another date.
bool isDateText(std::string_view text) {
    constexpr std::string_view form = "dddd-dd-ddTdd:dd:ddZ";
    return std::ranges::equal(text, form, [](char given, char wanted) {
        return wanted == 'd' ? given >= '0' && given <= '9' : given == wanted;
    });
}

bool canBeWritten(const Value& value, std::size_t depth) {
    if (value.is_binary() && value.get_binary().has_subtype() &&
        value.get_binary().subtype() == dateSubtype)
        return isDateText(asText(value.get_binary()));
    if (value.is_string())
        return isXmlText(value.get_ref<const std::string&>());
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

Value dateValue(std::string_view iso8601) {
    return Value::binary(toBytes(iso8601), dateSubtype);
}

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
    if (value.is_null() || !canBeWritten(value, 2))
        return std::nullopt;
    XmlWriter writer;
    writer.write(value, 0);
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n" +
           writer.take() + "</plist>\n";
}

tl::expected<void, std::string> writePropertyListFile(const std::string& path, const Value& value) {
    const auto xml = xmlPropertyList(value);
    if (!xml)
        return tl::unexpected(std::string("holds what no XML property list can carry"));
    // What the reader would refuse would be lost with all that it holds.
    if (const auto readable = parsePropertyList(asBytes(*xml)); !readable)
        return tl::unexpected("would not be read again: " + readable.error());
    return replacePrivateFile(path, asBytes(*xml));
}

}  // namespace quorl
