// Keyed archives: against an independent coder, and against everything that must be refused.
#include "KeyedArchive.h"
#include "Subprocess.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace quorl {
namespace {

using namespace test;

/// What the independent coder makes of the input.
std::string python(const std::string& arguments, const std::string& input) {
    TestSandbox sandbox;
    const std::string file = (sandbox.root() / "input").string();
    TestSandbox::write(file, input);
    return outputOf({"sh", "-c", "python3 \"$1\" " + arguments + " < \"$2\"", "sh",
                     QUORL_SOURCE_DIR "/tests/support/keyed_archive.py", file});
}

const Value request = {
    {"MFA_REQUEST_URL", "/mfa?u=ada"},
    {"USER_NAME", "ada"},
    {"DOMAIN_NAME", "日本 \xf0\x9f\x94\x91 Ünïcode"},
    {"OFFLINE_MFA", true},
    {"POST_DATA", std::string(300, 'x')},
    {"NUMBERS",
     {0, 255, 256, 65535, 65536, 4294967295, 4294967296, -1, INT64_MIN, INT64_MAX,
      9223372036854775808U, UINT64_MAX, 1.5, -0.25, false}},
    {"REQUEST_HEADERS", {{"X-A", "1"}, {"X-B", ""}}},
    {"EMPTY", {{"list", Value::array()}, {"dictionary", Value::object()}, {"nothing", nullptr}}},
};

TEST(KeyedArchive, IsReadAndWrittenAsAnIndependentCoderDoes) {
    const auto ours = archive(request);
    ASSERT_TRUE(ours);
    EXPECT_EQ(Value::parse(python("read", toString(*ours))), request);
    for (const char* form : {"write", "write --shared", "write --mutable"}) {
        const auto theirs = unarchive(asBytes(python(form, request.dump())));
        ASSERT_TRUE(theirs) << form;
        EXPECT_EQ(*theirs, request) << form;
        // A boolean stays one, and a large number its sign.
        EXPECT_TRUE((*theirs)["OFFLINE_MFA"].is_boolean());
        EXPECT_TRUE((*theirs)["NUMBERS"][11].is_number_unsigned());
    }
    const auto data = unarchive(asBytes(python("write --mutable", R"({"d":{"bytes":"00ff10"}})")));
    ASSERT_TRUE(data);
    EXPECT_EQ((*data)["d"], Value::binary({0x00, 0xff, 0x10}));
    EXPECT_EQ(python("read", toString(*archive(*data))), R"({"d": {"bytes": "00ff10"}})");
    for (const char* form : {"write", "write --mutable"}) {
        const auto day = unarchive(asBytes(
            python(form, R"({"a":{"date":"2026-11-22T01:02:03"},"b":{"date":"1933-05-01"}})")));
        ASSERT_TRUE(day) << form;
        EXPECT_EQ(*day, (Value{{"a", "2026-11-22T01:02:03Z"}, {"b", "1933-05-01T00:00:00Z"}}));
    }
}

TEST(KeyedArchive, TruncatedAtAnyByteOrExtendedGivesNothing) {
    Bytes whole = *archive(request);
    for (std::size_t length = 0; length < whole.size(); ++length)
        ASSERT_FALSE(unarchive(ByteView(whole).first(length))) << length;
    whole.push_back(0);
    EXPECT_FALSE(unarchive(whole));
}

TEST(KeyedArchive, WhatIsNoBoundedBinaryListIsRefused) {
    EXPECT_FALSE(unarchive(asBytes("<?xml version=\"1.0\"?><plist><dict/></plist>")));
    EXPECT_FALSE(unarchive(Bytes(1 << 20, 0xd0)));
    Bytes large = *archive({{"x", std::string((1 << 20) - 400, 'x')}});
    EXPECT_TRUE(unarchive(large));
    EXPECT_FALSE(archive({{"x", std::string(1 << 20, 'x')}}));
    large.insert(large.begin() + 8, 400, 0);
    EXPECT_FALSE(unarchive(large));
}

TEST(KeyedArchive, EachBrokenFieldOfTheContainerIsRefused) {
    const Bytes good = *archive({{"k", {true, std::string(40, 'Z')}}});
    const std::size_t size = good.size();
    ASSERT_EQ(good[size - 26], 2) << "bytes of an offset";
    const std::size_t table = size - 32 - 2 * std::size_t{good[size - 17]};
    struct Patch {
        const char* field;
        std::size_t at;
        std::uint8_t value;
    };
    for (const auto& [field, at, value] : std::vector<Patch>{
             {"magic", 7, '1'},
             {"unused bytes", size - 32, 1},
             {"sort version", size - 27, 1},
             {"offset size 0", size - 26, 0},
             {"offset size 9", size - 26, 9},
             {"reference size 0", size - 25, 0},
             {"reference size 9", size - 25, 9},
             {"more objects", size - 17, static_cast<std::uint8_t>(good[size - 17] + 1)},
             {"fewer objects", size - 17, static_cast<std::uint8_t>(good[size - 17] - 1)},
             {"no objects", size - 17, 0},
             {"2^56 objects", size - 24, 1},
             {"top out of range", size - 9, good[size - 17]},
             {"table beyond the end", size - 2, 0xff},
             {"offset in the magic", table + 1, 7},
             {"offset behind the objects", table, 0xff},
             {"reference out of range", table - 1, good[size - 17]}}) {
        Bytes bytes = good;
        ASSERT_NE(bytes[at], value) << field;
        bytes[at] = value;
        EXPECT_FALSE(unarchive(bytes)) << field;
    }
    Bytes padded = good;
    padded.insert(padded.end() - 32, 0);
    EXPECT_FALSE(unarchive(padded)) << "a byte behind the offset table";
    // A byte Z within a text would begin another text: objects may not overlap.
    Bytes overlapping = good;
    std::size_t entry = table;
    while (good[std::size_t{good[entry]} << 8 | good[entry + 1]] != 0x09)
        entry += 2;
    const std::size_t within = toString(good).find("ZZZ");
    overlapping[entry] = static_cast<std::uint8_t>(within >> 8);
    overlapping[entry + 1] = static_cast<std::uint8_t>(within);
    EXPECT_FALSE(unarchive(overlapping));
}

TEST(KeyedArchive, WhatIsAtALimitPassesAndWhatIsBeyondDoesNot) {
    const auto nested = [](int levels) {
        Value value = Value::object();
        for (; levels > 1; --levels)
            value = {{"k", value}};
        return value;
    };
    EXPECT_EQ(unarchive(archive(nested(32)).value()), nested(32));
    EXPECT_FALSE(archive(nested(33)));
    const auto many = [](std::size_t entries) {
        return Value{{"k", Value(std::vector<std::string>(entries, "v"))}};
    };
    EXPECT_EQ(unarchive(archive(many(19'900)).value()), many(19'900));
    EXPECT_FALSE(archive(many(20'000)));
}

/// A good archive after Python statements on its parts: top, o(bjects), d(ictionary), c(lass).
std::optional<Value> unarchiveLayout(const std::string& statements) {
    const std::string archive = python("layout", statements);
    EXPECT_TRUE(archive.starts_with("bplist00")) << statements;
    return unarchive(asBytes(archive));
}

TEST(KeyedArchive, EachBrokenRuleOfTheLayoutIsRefused) {
    // The same layout is read while no rule is broken.
    ASSERT_EQ(unarchiveLayout(""), (Value{{"k", "k"}}));
    for (const auto& [rule, statements] : std::vector<std::pair<const char*, const char*>>{
             {"another archiver", "top['$archiver'] = 'NSArchiver'"},
             {"another version", "top['$version'] = 100001"},
             {"another first object", "o[0] = 'null'"},
             {"root is a text", "top['$top']['root'] = UID(2)"},
             {"root is nil", "top['$top']['root'] = UID(0)"},
             {"root is no number of an object", "top['$top']['root'] = '1'"},
             {"object out of range", "d['NS.objects'] = [UID(99)]"},
             {"duplicate key", "d['NS.keys'] *= 2; d['NS.objects'] *= 2"},
             {"key that is a number", "d['NS.keys'] = [put(1)]"},
             {"more keys than objects", "d['NS.objects'] = []"},
             {"missing keys", "del d['NS.keys']"},
             {"missing class", "del d['$class']"},
             {"unknown class", "c['$classname'] = c['$classes'][0] = 'NSSet'"},
             {"class unlike its chain", "c['$classes'][0] = 'NSArray'"},
             {"a value of an unknown class",
              "d['NS.objects'] = [put({'$class': put(cls('NSTask'))})]"},
             {"a cycle", "d['NS.objects'] = [UID(1)]"},
             {"a number that is not finite", "d['NS.objects'] = [put(float('inf'))]"},
             {"a day of no calendar",
              "d['NS.objects'] = [put({'NS.time': 1e300, '$class': put(cls('NSDate'))})]"},
             {"a plist key that is a number", R"(d['ZZ'] = 'x'; swap += [b'\x52ZZ', b'\x11\0\1'])"},
             {"a plist key that occurs twice",
              "d['NS.keyz'] = d['NS.keys']; swap += [b'NS.keyz', b'NS.keys']"},
             {"plist nesting over 8", "put([[[[[[[[[]]]]]]]]])"},
             {"a bare list", "d['NS.objects'] = [put([])]"}})
        EXPECT_FALSE(unarchiveLayout(statements)) << rule;
}

TEST(KeyedArchive, SharedReferencesAreCountedPerVisit) {
    // One list of so many references to one number or text.
    const auto shared = [](const char* item, int references) {
        return unarchiveLayout(
            fmt::format("d['NS.objects'] = [put({{'NS.objects': [put({})] * {}, "
                        "'$class': put(cls('NSArray'))}})]",
                        item, references));
    };
    EXPECT_EQ(shared("7", 19'997), (Value{{"k", Value(std::vector<int>(19'997, 7))}}));
    EXPECT_FALSE(shared("7", 19'998));
    EXPECT_FALSE(shared("'x' * 100_000", 50)) << "bounded by what it would decode to";

    // One long key of a plist dictionary that is met so many times.
    EXPECT_TRUE(unarchiveLayout("o += [{'x' * 30_000: 'y'}] * 100"));
    EXPECT_FALSE(unarchiveLayout("o += [{'x' * 30_000: 'y'}] * 150"));
    // Thirty levels of two shared references each would be a thousand million values.
    EXPECT_FALSE(unarchiveLayout(
        "level, array = UID(2), put(cls('NSArray'))\n"
        "for _ in range(30): level = put({'NS.objects': [level] * 2, '$class': array})\n"
        "d['NS.objects'] = [level]"));
}

TEST(KeyedArchive, TheWriterRefusesWhatTheFormatCannotCarry) {
    Value deep = 1;
    for (int i = 0; i < 40; ++i)
        deep = Value::array({deep});
    for (const Value& value :
         {Value(), Value::array(), Value("text"), Value{{"k", "$null"}}, Value{{"$null", 1}},
          Value{{"k", std::string("a\0b", 3)}}, Value{{"k", "\xc3"}}, Value{{"k", "\xed\xa0\x80"}},
          Value{{"k", "\xc0\x80"}}, Value{{"k", 0.0 / 0.0}}, Value{{"k", deep}}})
        EXPECT_FALSE(archive(value));
}

TEST(KeyedArchive, TextsWithANulOrHalfACharacterAreRefused) {
    // A valid archive whose one UTF-16 text is then spoilt in place.
    const Bytes good = *archive({{"k", "\xc3\xbc\xc3\xbc"}});
    const std::string units = std::string("\x62\x00\xfc\x00\xfc", 5);
    const auto at = toString(good).find(units);
    ASSERT_NE(at, std::string::npos);
    for (const std::string& spoilt :
         {std::string("\0\0", 2), std::string("\xd8\x00", 2), std::string("\xdc\x00", 2)}) {
        Bytes bytes = good;
        std::copy(spoilt.begin(), spoilt.end(), bytes.begin() + static_cast<long>(at) + 3);
        EXPECT_FALSE(unarchive(bytes));
    }
    const Bytes ascii = *archive({{"key", "SUCCESS-FAIL"}});
    for (const char byte : {'\0', '\x80'}) {
        Bytes bytes = ascii;
        bytes[toString(ascii).find("SUCCESS-FAIL") + 7] = static_cast<std::uint8_t>(byte);
        EXPECT_FALSE(unarchive(bytes));
    }
}

}  // namespace
}  // namespace quorl
