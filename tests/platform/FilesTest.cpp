// Files that are replaced as a whole, and the property lists in them.
#include "AtomicFile.h"
#include "PropertyList.h"
#include "Subprocess.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace quorl {
namespace {

using namespace test;
namespace fs = std::filesystem;

class FilesTest : public testing::Test {
  protected:
    std::string path(const std::string& name) const { return (sandbox.root() / name).string(); }
    std::size_t entries() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(sandbox.root()), fs::directory_iterator()));
    }
    TestSandbox sandbox;
};

TEST_F(FilesTest, AFileIsReplacedAsAWholeWithTheModeThatIsMeant) {
    umask(0);
    EXPECT_TRUE(replaceFile(path("new"), asBytes("one")));
    EXPECT_EQ(modeOf(path("new")), 0600U);
    chmod(path("new").c_str(), 0640);
    EXPECT_TRUE(replaceFile(path("new"), asBytes("two")));
    EXPECT_EQ(modeOf(path("new")), 0640U) << "kept";
    EXPECT_TRUE(replaceFile(path("new"), asBytes("three"), 0600));
    EXPECT_EQ(modeOf(path("new")), 0600U);
    EXPECT_EQ(toString(*readFile(path("new"), 100)), "three");
    EXPECT_FALSE(readFile(path("new"), 4));
}

TEST_F(FilesTest, NothingButARegularFileIsReplacedAndNothingOutsideIsTouched) {
    TestSandbox::write(path("outside"), "old");
    fs::create_symlink(path("outside"), path("link"));
    fs::create_directory(path("folder"));
    mkfifo(path("pipe").c_str(), 0600);
    const std::size_t before = entries();
    for (const char* name : {"link", "folder", "pipe", "missing/file"})
        EXPECT_FALSE(replaceFile(path(name), asBytes("new"))) << name;
    for (const char* name : {"folder", "pipe", "missing"})
        EXPECT_FALSE(readFile(path(name), 100)) << name;
    EXPECT_EQ(TestSandbox::read(path("outside")), "old");
    EXPECT_EQ(entries(), before) << "no temporary file stays";
}

TEST_F(FilesTest, AFileOfSecretsIsClosedToAllButTheAgentsGroup) {
    setenv("QUORL_AGENT_ACCOUNT", "nogroup", 1);
    const LogCapture log;
    struct Case {
        gid_t group;
        mode_t before;
        mode_t after;
    };
    for (const Case& c : {Case{65534, 0640, 0640}, Case{65534, 0660, 0640}, Case{65534, 0604, 0600},
                          Case{getegid(), 0640, 0600}, Case{getegid(), 0400, 0600}}) {
        TestSandbox::write(path("secret"), "old");
        if (chown(path("secret").c_str(), static_cast<uid_t>(-1), c.group) != 0)
            continue;
        chmod(path("secret").c_str(), c.before);
        EXPECT_TRUE(replacePrivateFile(path("secret"), asBytes("new")));
        EXPECT_EQ(modeOf(path("secret")), c.after);
        fs::remove(path("secret"));
    }
    EXPECT_EQ(log.count("was open to others and is written back as 06"), geteuid() == 0 ? 3U : 1U);
}

TEST_F(FilesTest, OwnerAndGroupAreKept) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    TestSandbox::write(path("shared/file"), "old");
    const auto replacedOwner = [&] {
        struct stat status {};
        EXPECT_TRUE(replaceFile(path("shared/file"), asBytes("new")));
        stat(path("shared/file").c_str(), &status);
        return std::pair(status.st_uid, status.st_gid);
    };
    ASSERT_EQ(chown(path("shared/file").c_str(), 65534, 65533), 0);
    EXPECT_EQ(replacedOwner(), std::pair(65534U, 65533U));
    // A folder that gives its own group to what is made in it.
    ASSERT_EQ(chown(path("shared/file").c_str(), 0, 0), 0);
    ASSERT_EQ(chown(path("shared").c_str(), 0, 65533), 0);
    ASSERT_EQ(chmod(path("shared").c_str(), 02755), 0);
    EXPECT_EQ(replacedOwner(), std::pair(0U, 0U));
}

TEST_F(FilesTest, PropertyListsOfAnIndependentWriterAreReadInBothForms) {
    const std::string script =
        "import plistlib,sys,datetime\n"
        "value = {'text': 'a <b> & \\u00fc \\U0001f511', 'number': -7, 'big': 2**40, 'huge': "
        "2**64-1, 'yes': True,"
        " 'real': 1.5, 'data': b'\\0\\1', 'list': ['x', {'y': ''}],"
        " 'date': datetime.datetime(2026, 11, 22, 1, 2, 3)}\n"
        "for form, name in ((plistlib.FMT_XML, 'xml'), (plistlib.FMT_BINARY, 'binary')):\n"
        "    plistlib.dump(value, open(sys.argv[1] + '/' + name, 'wb'), fmt=form)\n";
    outputOf({"python3", "-c", script, sandbox.root().string()});
    const Value expected = {{"text", "a <b> & \xc3\xbc \xf0\x9f\x94\x91"},
                            {"number", -7},
                            {"big", 1099511627776},
                            {"yes", true},
                            {"real", 1.5},
                            {"data", Value::binary({0, 1})},
                            {"list", {"x", {{"y", ""}}}},
                            {"huge", UINT64_MAX},
                            {"date", dateValue("2026-11-22T01:02:03Z")}};
    for (const char* name : {"xml", "binary"}) {
        const auto value = readPropertyListFile(path(name));
        ASSERT_TRUE(value) << name << ": " << value.error();
        EXPECT_EQ(*value, expected) << name;
    }
    // Every kind survives a rewriting, a date beyond 32 bits and a carriage return among them.
    Value rewritten = expected;
    rewritten["far"] = dateValue("2199-12-31T23:59:59Z");
    rewritten["cr"] = "a\r\nb";
    rewritten["small"] = INT64_MIN;
    EXPECT_TRUE(writePropertyListFile(path("again"), rewritten));
    EXPECT_EQ(readPropertyListFile(path("again")).value(), rewritten);
    EXPECT_EQ(
        outputOf(
            {"python3", "-c",
             "import plistlib,sys\n"
             "a, b = (plistlib.load(open(sys.argv[1] + n,'rb')) for n in ('/xml','/again'))\n"
             "print(all(b[k] == v for k, v in a.items()), b['far'], repr(b['cr']), b['small'])",
             sandbox.root().string()}),
        "True 2199-12-31 23:59:59 'a\\r\\nb' -9223372036854775808\n");
    EXPECT_TRUE(writePropertyListFile(path("ours"), {{"a <b>", "& \xc3\xbc"}, {"gone", nullptr}}));
    EXPECT_EQ(outputOf({"python3", "-c",
                        "import plistlib,sys; print(plistlib.load(open(sys.argv[1],'rb'),"
                        "fmt=plistlib.FMT_XML))",
                        path("ours")}),
              "{'a <b>': '& \xc3\xbc'}\n");
}

TEST_F(FilesTest, XmlThatIsUnusualButWholeIsRead) {
    std::string many = "<array>";
    for (int i = 0; i < 100; ++i)
        many += "<dict/>";
    const Value empty = Value::object();
    for (const auto& [xml, expected] : std::vector<std::pair<std::string, Value>>{
             {"\xef\xbb\xbf<plist><string> a </string></plist>", " a "},
             {"<!DOCTYPE plist SYSTEM \"x\"><plist><true/></plist><!-- </plist> -->\n", true},
             {"<plist><!-- <dict> --><string><![CDATA[<b>]]>&#65;</string></plist>", "<b>A"},
             {"<plist>" + many + "</array></plist>", Value(100, empty)}}) {
        const auto value = parsePropertyList(asBytes(xml));
        ASSERT_TRUE(value) << xml;
        EXPECT_EQ(*value, expected) << xml;
    }
}

TEST_F(FilesTest, DamagedPropertyListsGiveAReason) {
    std::string deep = "<plist version=\"1.0\">";
    for (int i = 0; i < 100'000; ++i)
        deep += "<array>";
    const std::string start = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>";
    const std::string entry = "<key>a</key><string>b</string>";
    const std::string end = "</dict></plist>";
    // Texts of UTF-16 with a NUL, and a key that is one: the library behind XML aborts on these.
    const std::string nulKey(
        "bplist00\xd1\x01\x01\x61\0\0\x08\x0b\0\0\0\0\0\0\1\1\0\0\0\0\0\0\0\2"
        "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x0e",
        48);
    ASSERT_TRUE(parsePropertyList(asBytes(start + entry + end)));
    for (const std::string& content : {std::string(),
                                       std::string("noise"),
                                       std::string(1000, '\0'),
                                       std::string("bplist00"),
                                       "bplist00" + std::string(64, '\xff'),
                                       nulKey,
                                       deep,
                                       start,
                                       start + entry,
                                       start + entry + "</dict>",
                                       start + "<key>a</key><string>b</key>" + end,
                                       start + "<key>a</key>" + end,
                                       start + "<string>a</string>" + end,
                                       start + "<key>a</key><string><dict/></string>" + end,
                                       start + "<other/>" + end,
                                       start + entry + end + "x",
                                       start + entry + end + "<plist/>",
                                       start + "<key>a</key><string>\xff</string>" + end,
                                       "<!DOCTYPE plist [<!ENTITY a \"b\">]>" + start + entry + end,
                                       std::string((4 << 20) + 1, ' ')}) {
        TestSandbox::write(path("file"), content);
        const auto value = readPropertyListFile(path("file"));
        EXPECT_FALSE(value) << content.substr(0, 150);
    }
    EXPECT_FALSE(readPropertyListFile(path("missing")));
}

TEST_F(FilesTest, WhatNoXmlReaderWouldTakeIsNotWritten) {
    TestSandbox::write(path("file"), "old");
    Value deepest = "leaf";
    for (int i = 0; i < 62; ++i)
        deepest = Value::array({deepest});
    EXPECT_EQ(parsePropertyList(asBytes(xmlPropertyList(deepest).value())), deepest);
    const Value deep = Value::array({deepest});
    for (const Value& value :
         {Value(), Value{{"k", std::string("a\0b", 3)}}, Value{{"k", "\x1b"}}, Value{{"\xff", ""}},
          Value{{"k", "\xef\xbf\xbf"}}, Value{{"k", 1.0 / 0.0}},
          Value{{"k", std::string(5U << 20, 'x')}}, deep})
        EXPECT_FALSE(writePropertyListFile(path("file"), value));
    EXPECT_EQ(TestSandbox::read(path("file")), "old");
}

}  // namespace
}  // namespace quorl
