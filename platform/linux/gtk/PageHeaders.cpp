#include "PageHeaders.h"

#include "GlibSupport.h"

#include <algorithm>

namespace quorl {
namespace {

using Variant = Handle<GVariant, g_variant_unref>;

constexpr const char* variantType = "aay";
constexpr std::string_view contentTypePrefix = "application/x-quorl-page; headers=";

bool isTokenCharacter(char c) {
    return g_ascii_isalnum(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string::npos;
}

GVariant* bytesVariant(const std::string& text) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, text.data(), text.size(), 1);
}

std::string variantBytes(GVariant* list, gsize index) {
    const Variant child(g_variant_get_child_value(list, index));
    gsize size = 0;
    const auto* data = static_cast<const char*>(g_variant_get_fixed_array(child.get(), &size, 1));
    return std::string(data ? data : "", size);
}

}  // namespace

std::string pageHeadersContentType(const std::string& sealed) {
    return std::string(contentTypePrefix) + sealed;
}

std::string sealPageHeaders(const PageHeaders& headers, std::string_view secret) {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE(variantType));
    g_variant_builder_add_value(&builder, bytesVariant(headers.load));
    for (const auto& [name, value] : headers.fields) {
        g_variant_builder_add_value(&builder, bytesVariant(name));
        g_variant_builder_add_value(&builder, bytesVariant(value));
    }
    const Variant list(g_variant_ref_sink(g_variant_builder_end(&builder)));
    const GCharHandle text(
        g_base64_encode(static_cast<const guchar*>(g_variant_get_data(list.get())),
                        g_variant_get_size(list.get())));
    return std::string(secret) + "." + text.get();
}

std::optional<PageHeaders> openPageHeaders(std::string_view carried, std::string_view secret) {
    if (carried.starts_with(contentTypePrefix))
        carried.remove_prefix(contentTypePrefix.size());
    if (secret.empty() || !carried.starts_with(secret) || carried.size() == secret.size() ||
        carried[secret.size()] != '.')
        return std::nullopt;
    const std::string text(carried.substr(secret.size() + 1));
    gsize size = 0;
    const Handle<guchar, g_free> data(g_base64_decode(text.c_str(), &size));
    const Handle<GBytes, g_bytes_unref> bytes(g_bytes_new(data.get(), size));
    const Variant list(g_variant_ref_sink(
        g_variant_new_from_bytes(G_VARIANT_TYPE(variantType), bytes.get(), FALSE)));
    const gsize count = g_variant_n_children(list.get());
    if (count % 2 == 0)
        return std::nullopt;
    PageHeaders headers{.load = variantBytes(list.get(), 0), .fields = {}};
    for (gsize i = 1; i < count; i += 2)
        headers.fields.emplace_back(variantBytes(list.get(), i), variantBytes(list.get(), i + 1));
    return headers;
}

bool isValidHeader(std::string_view name, std::string_view value) {
    return !name.empty() && std::ranges::all_of(name, isTokenCharacter) &&
           value.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

}  // namespace quorl
