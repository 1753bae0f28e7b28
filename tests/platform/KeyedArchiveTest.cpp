// Keyed archives: against an independent coder, and against everything that must be refused.
#include "BinaryPlistWriter.h"
#include "KeyedArchive.h"
#include "Subprocess.h"

#include <gtest/gtest.h>

#include <random>

namespace quorl {
namespace {

using namespace test;
using Writer = BinaryPlistWriter;
using Index = Writer::Index;

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

TEST(KeyedArchive, DamageNeverDoesMoreThanGiveNothing) {
    const Bytes whole = *archive(request);
    std::mt19937 random(20261122);
    for (int i = 0; i < 20'000; ++i) {
        Bytes damaged = whole;
        for (int flips = 1 + static_cast<int>(random() % 4); flips > 0; --flips)
            damaged[random() % damaged.size()] = static_cast<std::uint8_t>(random());
        const auto value = unarchive(damaged);
        ASSERT_TRUE(!value || value->is_object());
    }
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

/// An archive laid out by hand, so that each rule can be broken by itself.
struct Layout {
    Writer writer;
    std::vector<Index> objects{writer.addText("$null")};
    Index version = writer.addInteger(100000);
    Index archiver = writer.addText("NSKeyedArchiver");

    std::uint32_t place(Index object) {
        objects.push_back(object);
        return static_cast<std::uint32_t>(objects.size() - 1);
    }
    Index text(std::string_view text) { return writer.addText(text); }
    Index uid(std::uint32_t number) { return writer.addUid(number); }
    std::uint32_t cls(std::string_view name, std::string_view first) {
        return place(writer.addDictionary({text("$classname"), text("$classes")},
                                          {text(name), writer.addArray({text(first)})}));
    }
    std::uint32_t cls(std::string_view name) { return cls(name, name); }
    std::uint32_t dictionary(const std::vector<Index>& keys, const std::vector<Index>& values,
                             std::uint32_t itsClass) {
        return place(
            writer.addDictionary({text("NS.keys"), text("NS.objects"), text("$class")},
                                 {writer.addArray(keys), writer.addArray(values), uid(itsClass)}));
    }
    Bytes finish(Index root) {
        const Index roots = writer.addDictionary({text("root"), text("more")}, {root, uid(0)});
        const Index all = writer.addArray(objects);
        return writer.finish(writer.addDictionary(
            {text("$version"), text("$archiver"), text("$top"), text("$objects")},
            {version, archiver, roots, all}));
    }
};

TEST(KeyedArchive, EachBrokenRuleOfTheLayoutIsRefused) {
    // The same layout is read while no rule is broken.
    {
        Layout good;
        const auto key = good.place(good.text("k"));
        const auto root =
            good.dictionary({good.uid(key)}, {good.uid(key)}, good.cls("NSDictionary"));
        EXPECT_EQ(unarchive(good.finish(good.uid(root))), (Value{{"k", "k"}}));
    }
    const auto refused = [](const char* rule, auto&& build) {
        Layout layout;
        const Bytes bytes = layout.finish(build(layout));
        EXPECT_FALSE(unarchive(bytes)) << rule;
    };
    const auto oneEntry = [](Layout& l, std::uint32_t key, std::uint32_t value) {
        return l.uid(l.dictionary({l.uid(key)}, {l.uid(value)}, l.cls("NSDictionary")));
    };
    refused("another archiver", [&](Layout& l) {
        l.archiver = l.text("NSArchiver");
        return oneEntry(l, l.place(l.text("k")), 0);
    });
    refused("another version", [&](Layout& l) {
        l.version = l.writer.addInteger(100001);
        return oneEntry(l, l.place(l.text("k")), 0);
    });
    refused("another first object", [&](Layout& l) {
        l.objects[0] = l.text("null");
        return oneEntry(l, l.place(l.text("k")), 0);
    });
    refused("root is a text", [](Layout& l) { return l.uid(l.place(l.text("k"))); });
    refused("root is nil", [](Layout& l) { return l.uid(0); });
    refused("root is no number of an object", [](Layout& l) { return l.text("1"); });
    refused("object out of range",
            [&](Layout& l) { return oneEntry(l, l.place(l.text("k")), 99); });
    refused("duplicate key", [](Layout& l) {
        const Index key = l.uid(l.place(l.text("k")));
        return l.uid(l.dictionary({key, key}, {key, key}, l.cls("NSDictionary")));
    });
    refused("key that is a number",
            [&](Layout& l) { return oneEntry(l, l.place(l.writer.addInteger(1)), 0); });
    refused("more keys than objects", [](Layout& l) {
        const Index key = l.uid(l.place(l.text("k")));
        return l.uid(l.dictionary({key}, {}, l.cls("NSDictionary")));
    });
    refused("missing keys", [](Layout& l) {
        return l.uid(
            l.place(l.writer.addDictionary({l.text("NS.objects"), l.text("$class")},
                                           {l.writer.addArray({}), l.uid(l.cls("NSDictionary"))})));
    });
    refused("missing class", [](Layout& l) {
        return l.uid(
            l.place(l.writer.addDictionary({l.text("NS.keys"), l.text("NS.objects")},
                                           {l.writer.addArray({}), l.writer.addArray({})})));
    });
    refused("unknown class", [](Layout& l) { return l.uid(l.dictionary({}, {}, l.cls("NSSet"))); });
    refused("class unlike its chain", [](Layout& l) {
        return l.uid(l.dictionary({}, {}, l.cls("NSDictionary", "NSArray")));
    });
    refused("a value of an unknown class", [&](Layout& l) {
        const auto value =
            l.place(l.writer.addDictionary({l.text("$class")}, {l.uid(l.cls("NSTask"))}));
        return oneEntry(l, l.place(l.text("k")), value);
    });
    refused("a cycle", [&](Layout& l) {
        const auto key = l.place(l.text("k"));
        return oneEntry(l, key, static_cast<std::uint32_t>(l.objects.size() + 1));
    });
    refused("a number that is not finite", [&](Layout& l) {
        return oneEntry(l, l.place(l.text("k")), l.place(l.writer.addReal(1.0 / 0.0)));
    });
    refused("a day of no calendar", [&](Layout& l) {
        const auto day =
            l.place(l.writer.addDictionary({l.text("NS.time"), l.text("$class")},
                                           {l.writer.addReal(1e300), l.uid(l.cls("NSDate"))}));
        return oneEntry(l, l.place(l.text("k")), day);
    });
    refused("a plist key that is a number", [](Layout& l) {
        return l.uid(l.place(l.writer.addDictionary(
            {l.text("NS.keys"), l.text("NS.objects"), l.text("$class"), l.writer.addInteger(1)},
            {l.writer.addArray({}), l.writer.addArray({}), l.uid(l.cls("NSDictionary")),
             l.text("x")})));
    });
    refused("a plist key that occurs twice", [](Layout& l) {
        const Index none = l.writer.addArray({});
        return l.uid(l.place(l.writer.addDictionary(
            {l.text("NS.keys"), l.text("NS.objects"), l.text("$class"), l.text("NS.keys")},
            {none, none, l.uid(l.cls("NSDictionary")), none})));
    });
    refused("plist nesting over 8", [](Layout& l) {
        Index deep = l.writer.addArray({});
        for (int i = 0; i < 8; ++i)
            deep = l.writer.addArray({deep});
        l.place(deep);
        return l.uid(l.dictionary({}, {}, l.cls("NSDictionary")));
    });
    refused("a bare list", [&](Layout& l) {
        return oneEntry(l, l.place(l.text("k")), l.place(l.writer.addArray({})));
    });
}

TEST(KeyedArchive, SharedReferencesAreCountedPerVisit) {
    // One list of so many references to one number.
    const auto shared = [](std::size_t references) {
        Layout l;
        const auto number = l.uid(l.place(l.writer.addInteger(7)));
        const auto list = l.place(l.writer.addDictionary(
            {l.text("NS.objects"), l.text("$class")},
            {l.writer.addArray(std::vector<Index>(references, number)), l.uid(l.cls("NSArray"))}));
        return unarchive(l.finish(l.uid(
            l.dictionary({l.uid(l.place(l.text("k")))}, {l.uid(list)}, l.cls("NSDictionary")))));
    };
    EXPECT_EQ(shared(19'997), (Value{{"k", Value(std::vector<int>(19'997, 7))}}));
    EXPECT_FALSE(shared(19'998));

    // One long key of a plist dictionary that is met so many times.
    const auto longKey = [](std::size_t visits) {
        Layout l;
        const std::string key(30'000, 'x');
        const Index dictionary = l.writer.addDictionary({l.text(key)}, {l.text("y")});
        l.objects.insert(l.objects.end(), visits, dictionary);
        return unarchive(l.finish(l.uid(l.dictionary({}, {}, l.cls("NSDictionary")))));
    };
    EXPECT_EQ(longKey(100), Value::object());
    EXPECT_FALSE(longKey(150));

    Layout layout;
    const auto listClass = layout.cls("NSArray");
    auto level = layout.place(layout.text("leaf"));
    // Thirty levels of two shared references each would be a thousand million values.
    for (int i = 0; i < 30; ++i) {
        const Index both = layout.writer.addArray({layout.uid(level), layout.uid(level)});
        level = layout.place(layout.writer.addDictionary(
            {layout.text("NS.objects"), layout.text("$class")}, {both, layout.uid(listClass)}));
    }
    const auto root = layout.dictionary({layout.uid(layout.place(layout.text("k")))},
                                        {layout.uid(level)}, layout.cls("NSDictionary"));
    EXPECT_FALSE(unarchive(layout.finish(layout.uid(root))));

    // A large text that is shared is bounded by what it would decode to.
    Layout wide;
    const std::string large(100'000, 'x');
    const auto text = wide.place(wide.text(large));
    const std::vector<Index> many(50, wide.uid(text));
    const auto list = wide.place(
        wide.writer.addDictionary({wide.text("NS.objects"), wide.text("$class")},
                                  {wide.writer.addArray(many), wide.uid(wide.cls("NSArray"))}));
    const auto wideRoot = wide.dictionary({wide.uid(wide.place(wide.text("k")))}, {wide.uid(list)},
                                          wide.cls("NSDictionary"));
    EXPECT_FALSE(unarchive(wide.finish(wide.uid(wideRoot))));
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
