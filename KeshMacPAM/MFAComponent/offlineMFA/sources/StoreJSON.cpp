#include "StoreJSON.h"

#include "BoundedJson.h"
#include "Log.h"
#include "Wipe.h"

#include <algorithm>
#include <ostream>
#include <streambuf>

namespace quorl {
namespace {

// Copying and printing a value recurse: nesting is bounded long before it reaches the stack's end.
constexpr int deepestFile = 64;
// Of one user's record: ten times what a policy with every method needs, so that no reply can grow
// the file past what is read.
constexpr int deepestRecord = 16;
constexpr std::size_t largestRecord = std::size_t{64} << 10;

bool nestsWithin(const Value& value, int levels) {
    if (!value.is_structured())
        return true;
    return levels > 0 && std::all_of(value.begin(), value.end(), [levels](const Value& entry) {
               return nestsWithin(entry, levels - 1);
           });
}

Value parseLeavingOutDeepValues(std::string_view text) {
    logLine("JSONManipulator :: values nested deeper than {} levels are left out", deepestFile);
    const auto withinBounds = [](int depth, Value::parse_event_t event, const Value&) {
        const bool starts = event == Value::parse_event_t::object_start ||
                            event == Value::parse_event_t::array_start;
        return !starts || depth < deepestFile;
    };
    return Value::parse(text, withinBounds, false);
}

// Grows as a text does, but wipes what it outgrows.
class WipingBuffer final : public std::streambuf {
  public:
    ~WipingBuffer() override { wipe(text_); }
    std::string take() { return std::exchange(text_, {}); }

  protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        append({bytes, static_cast<std::size_t>(count)});
        return count;
    }
    int_type overflow(int_type c) override {
        const char byte = traits_type::to_char_type(c);
        append({&byte, 1});
        return c;
    }

  private:
    void append(std::string_view bytes) {
        if (text_.capacity() - text_.size() < bytes.size()) {
            std::string larger;
            larger.reserve(2 * (text_.capacity() + bytes.size()) + 4096);
            larger = text_;
            text_.swap(larger);
            wipe(larger);
        }
        text_ += bytes;
    }

    std::string text_;
};

}  // namespace

bool fitsStore(const Value& record) {
    if (!nestsWithin(record, deepestRecord))
        return false;
    auto text = printStoreJSON(record);
    if (!text)
        return false;
    const WipeAtExit wiped(*text);
    return text->size() <= largestRecord;
}

tl::expected<Value, std::string> parseStoreJSON(std::string_view text) {
    Value parsed = jsonNesting(text) <= deepestFile ? Value::parse(text, nullptr, false)
                                                    : parseLeavingOutDeepValues(text);
    if (parsed.is_discarded())
        return tl::unexpected<std::string>("the text is not JSON");
    if (!parsed.is_object()) {
        wipe(parsed);
        return tl::unexpected<std::string>("the JSON is no dictionary");
    }
    return parsed;
}

tl::expected<std::string, std::string> printStoreJSON(const Value& dictionary) {
    WipingBuffer buffer;
    std::ostream out(&buffer);
    try {
        out << dictionary;
    } catch (const Value::exception&) {
        return tl::unexpected<std::string>("a text is no UTF-8");
    }
    return buffer.take();
}

}  // namespace quorl
