#include "SessionState.h"

#include "Wipe.h"

#include <string.h>

#include <memory>

namespace quorl {
namespace {

constexpr guint16 formatVersion = 2;
constexpr guint elementIsData = 0;
constexpr guint ordinaryPage = 0;

// Above whatever the engine counts itself in one run.
gint64 nextSequence() {
    static gint64 sequence = gint64{1} << 40;
    return ++sequence;
}

// The copy is wiped with its variant.
GVariant* wipedBytes(const std::string& content) {
    auto kept = std::make_unique<std::string>(content);
    const char* data = kept->data();
    const auto free = [](gpointer text) {
        const std::unique_ptr<std::string> owned(static_cast<std::string*>(text));
        wipe(*owned);
    };
    return g_variant_new_from_data(G_VARIANT_TYPE_BYTESTRING, data, content.size(), TRUE, free,
                                   kept.release());
}

GVariant* bodyElement(const std::string& body) {
    GVariant* bytes = wipedBytes(body);
    GVariant* noLength = g_variant_new_maybe(G_VARIANT_TYPE_INT64, nullptr);
    GVariant* noTime = g_variant_new_maybe(G_VARIANT_TYPE_DOUBLE, nullptr);
    return g_variant_new("(u@aysx@mx@mds)", elementIsData, bytes, "", gint64{0}, noLength, noTime,
                         "");
}

constexpr const char* bodyType = "(sa(uaysxmxmds))";

GVariant* pageBody(const HistoryPage& page) {
    if (!page.body)
        return g_variant_new_maybe(G_VARIANT_TYPE(bodyType), nullptr);
    GVariant* elements[] = {bodyElement(page.body->content)};
    GVariant* list = g_variant_new_array(nullptr, elements, 1);
    GVariant* body = g_variant_new("(s@a(uaysxmxmds))", page.body->contentType.c_str(), list);
    return g_variant_new_maybe(nullptr, body);
}

GVariant* frame(const HistoryPage& page) {
    GVariant* noStrings = g_variant_new_strv(nullptr, 0);
    GVariant* noObject = g_variant_new_maybe(G_VARIANT_TYPE("ay"), nullptr);
    GVariant* noChildren = g_variant_new_array(G_VARIANT_TYPE_VARIANT, nullptr, 0);
    const gint64 document = nextSequence();
    const gint64 item = nextSequence();
    return g_variant_new("(ssss@as@mayxx(ii)d@m(sa(uaysxmxmds))@av)", page.url.c_str(),
                         page.url.c_str(), page.referrer.c_str(), "", noStrings, noObject, document,
                         item, 0, 0, 1.0, pageBody(page), noChildren);
}

}  // namespace

void wipeState(GVariant* state) {
    // Its own memory, which nobody but its owner reads.
    explicit_bzero(const_cast<gpointer>(g_variant_get_data(state)), g_variant_get_size(state));
}

GVariant* sessionStateOf(const HistoryPage& page) {
    GVariant* items[] = {
        g_variant_new("(s@(ssssasmayxx(ii)dm(sa(uaysxmxmds))av)u)", "", frame(page), ordinaryPage)};
    GVariant* list = g_variant_new_array(nullptr, items, 1);
    GVariant* current = g_variant_new_maybe(nullptr, g_variant_new_uint32(0));
    return g_variant_ref_sink(g_variant_new("(q@a(s(ssssasmayxx(ii)dm(sa(uaysxmxmds))av)u)@mu)",
                                            formatVersion, list, current));
}

}  // namespace quorl
