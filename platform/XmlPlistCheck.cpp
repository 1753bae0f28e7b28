#include "XmlPlistCheck.h"

#include <algorithm>
#include <array>
#include <vector>

namespace quorl {
namespace {

constexpr std::string_view whiteSpace = " \t\r\n";
constexpr std::array<std::string_view, 10> elements = {"dict", "key",  "array", "string", "integer",
                                                       "real", "true", "false", "date",   "data"};

/// Walks through the tags of a document.
class Check {
  public:
    Check(std::string_view xml, std::size_t deepest) : rest_(xml), deepest_(deepest) {}

    bool passes() {
        while (skipTo('<')) {
            if (!(rest_.starts_with("<!") || rest_.starts_with("<?") ? declaration() : tag()))
                return false;
        }
        return valid_ && rootSeen_ && open_.empty();
    }

  private:
    struct Element {
        std::string_view name;
        std::size_t children = 0;
    };

    // Outside of the root only white space may stand between the tags.
    bool skipTo(char wanted) {
        const std::size_t at = std::min(rest_.find(wanted), rest_.size());
        if (open_.empty() && rest_.substr(0, at).find_first_not_of(whiteSpace) != rest_.npos)
            valid_ = false;
        rest_.remove_prefix(at);
        return valid_ && !rest_.empty();
    }

    bool declaration() {
        if (rest_.starts_with("<!--"))
            return skipBehind("-->");
        if (rest_.starts_with("<?"))
            return skipBehind("?>");
        if (rest_.starts_with("<![CDATA["))
            return !open_.empty() && skipBehind("]]>");
        const std::string_view type = rest_.substr(0, rest_.find('>'));
        return type.starts_with("<!DOCTYPE") && !rootSeen_ && type.find('[') == type.npos &&
               skipBehind(">");
    }

    bool tag() {
        const std::size_t end = rest_.find('>');
        if (end == rest_.npos)
            return false;
        std::string_view inner = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        const bool closes = inner.starts_with('/');
        const bool isEmpty = !closes && inner.ends_with('/');
        if (closes)
            inner.remove_prefix(1);
        if (isEmpty)
            inner.remove_suffix(1);
        const std::string_view name = inner.substr(0, inner.find_first_of(whiteSpace));
        if (!closes && !beginElement(name))
            return false;
        return (!closes && !isEmpty) || endElement(name);
    }

    bool beginElement(std::string_view name) {
        if (open_.empty() ? rootSeen_ || name != "plist" : !mayHold(open_.back(), name))
            return false;
        if (!open_.empty())
            ++open_.back().children;
        rootSeen_ = true;
        open_.push_back({name});
        return open_.size() <= deepest_;
    }

    bool endElement(std::string_view name) {
        if (open_.empty() || open_.back().name != name ||
            (name == "dict" && open_.back().children % 2 != 0))
            return false;
        open_.pop_back();
        return true;
    }

    // Keys and values take turns in a dictionary; only it, a list and the root hold anything.
    static bool mayHold(const Element& parent, std::string_view child) {
        const bool isKey = child == "key";
        if (std::find(elements.begin(), elements.end(), child) == elements.end())
            return false;
        if (parent.name == "dict")
            return isKey == (parent.children % 2 == 0);
        return !isKey &&
               (parent.name == "array" || (parent.name == "plist" && parent.children == 0));
    }

    bool skipBehind(std::string_view end) {
        const std::size_t at = rest_.find(end);
        if (at == rest_.npos)
            return false;
        rest_.remove_prefix(at + end.size());
        return true;
    }

    std::string_view rest_;
    std::size_t deepest_;
    std::vector<Element> open_;
    bool rootSeen_ = false;
    bool valid_ = true;
};

}  // namespace

bool isWholeXmlPlist(std::string_view xml, std::size_t deepest) {
    return Check(xml, deepest).passes();
}

}  // namespace quorl
