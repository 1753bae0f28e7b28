// A request's archive read and written, beside a general property-list library that parses and
// emits the same bytes without making a dictionary of them.
#include "Groups.h"
#include "Handle.h"
#include "KeyedArchive.h"
#include "SampleRequest.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

namespace quorl::bench {
namespace {

using Plist = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeWith<plist_free>>;
using BinaryPlist = Handle<char, plist_to_bin_free>;

constexpr int samples = 400;
constexpr int batch = 100;

Plist parse(const Bytes& bytes) {
    plist_t node = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::uint32_t>(bytes.size()), &node);
    if (!node)
        std::abort();
    return Plist(node);
}

void emit(const Plist& plist) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(plist.get(), &bytes, &length);
    const BinaryPlist written(bytes);
    if (!written)
        std::abort();
}

void check(bool done) {
    if (!done)
        std::abort();
}

}  // namespace

void benchArchive(Figures& figures) {
    const Value& request = sampleRequest();
    const Bytes bytes = *archive(request);
    const Plist plist = parse(bytes);
    const auto microseconds = [&](const std::string& figure, const Pair& pair) {
        figures.add(figure, pair.work / 1000, pair.floor / 1000, "us");
    };
    microseconds("agent.archive.decode", comparePair([&] { check(unarchive(bytes).has_value()); },
                                                     [&] { parse(bytes); }, samples, batch));
    microseconds("agent.archive.encode", comparePair([&] { check(archive(request).has_value()); },
                                                     [&] { emit(plist); }, samples, batch));
}

}  // namespace quorl::bench
