// A request's archive read and written, beside a general property-list library that parses and
// emits the same bytes without making a dictionary of them.
#include "KeyedArchive.h"
#include "SampleData.h"

#include <plist/plist.h>

namespace quorl::bench {
namespace {

using Plist = Handle<std::remove_pointer_t<plist_t>, plist_free>;
using BinaryPlist = Handle<char, plist_to_bin_free>;

Plist parse(const Bytes& bytes) {
    plist_t node = nullptr;
    plist_from_bin(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::uint32_t>(bytes.size()), &node);
    expect(node, "the library cannot read the archive");
    return Plist(node);
}

void emit(const Plist& plist) {
    char* bytes = nullptr;
    std::uint32_t length = 0;
    plist_to_bin(plist.get(), &bytes, &length);
    const BinaryPlist written(bytes);
    expect(bytes, "the library cannot write the archive");
}

}  // namespace

void benchArchive() {
    constexpr Turns turns{.turns = 400, .runs = 100};
    const Bytes bytes = *archive(sampleRequest);
    const Plist plist = parse(bytes);
    const auto decode = [&] { expect(unarchive(bytes).has_value(), "no archive is read"); };
    const auto encode = [&] { expect(archive(sampleRequest).has_value(), "none is written"); };
    print("agent.archive.decode", compare(turns, decode, [&] { parse(bytes); }), us);
    print("agent.archive.encode", compare(turns, encode, [&] { emit(plist); }), us);
}

}  // namespace quorl::bench
