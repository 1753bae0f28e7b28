// A request's archive read and written, beside a general property-list library that parses and
// emits the same bytes without making a dictionary of them.
#include "Groups.h"
#include "Handle.h"
#include "KeyedArchive.h"
#include "SampleData.h"

#include <plist/plist.h>

namespace quorl::bench {
namespace {

using Plist = Handle<std::remove_pointer_t<plist_t>, plist_free>;
using BinaryPlist = Handle<char, plist_to_bin_free>;

constexpr Turns turns{.turns = 400, .runs = 100};

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

void benchArchive(Figures& figures) {
    const Value& request = sampleRequest();
    const Bytes bytes = *archive(request);
    const Plist plist = parse(bytes);
    const auto decode = [&] { expect(unarchive(bytes).has_value(), "no archive is read"); };
    const auto encode = [&] { expect(archive(request).has_value(), "no archive is written"); };
    figures.add("agent.archive.decode",
                compare(
                    decode, [&] { parse(bytes); }, turns),
                us);
    figures.add("agent.archive.encode",
                compare(
                    encode, [&] { emit(plist); }, turns),
                us);
}

}  // namespace quorl::bench
