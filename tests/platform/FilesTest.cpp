// Files that are replaced as a whole, and the property lists in them.
#include "AtomicFile.h"
#include "PropertyList.h"
#include "Subprocess.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace quorl {
namespace {

using namespace test;
namespace fs = std::filesystem;

class FilesTest : public testing::Test {
  protected:
    std::string path(const std::string& name) const { return (sandbox.root() / name).string(); }
    static mode_t modeOf(const std::string& file) {
        struct stat status {};
        stat(file.c_str(), &status);
        return status.st_mode & 07777;
    }
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

TEST_F(FilesTest, AFullDiskLeavesTheOldFile) {
    TestSandbox::write(path("file"), "old");
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{.rlim_cur = 1000, .rlim_max = RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_FALSE(replaceFile(path("file"), Bytes(2000, 'x')));
    EXPECT_EQ(TestSandbox::read(path("file")), "old");
    EXPECT_EQ(fs::exists(path("file")), true);
}

TEST_F(FilesTest, PropertyListsOfAnIndependentWriterAreReadInBothForms) {
    const std::string script =
        "import plistlib,sys,datetime\n"
        "value = {'text': 'a <b> & \\u00fc \\U0001f511', 'number': -7, 'big': 2**40, 'yes': True,"
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
                            {"date", "2026-11-22T01:02:03Z"}};
    for (const char* name : {"xml", "binary"}) {
        const auto value = readPropertyListFile(path(name));
        ASSERT_TRUE(value) << name << ": " << value.error();
        EXPECT_EQ(*value, expected) << name;
    }
    EXPECT_TRUE(writePropertyListFile(path("ours"), {{"a <b>", "& \xc3\xbc"}, {"gone", nullptr}}));
    EXPECT_EQ(outputOf({"python3", "-c",
                        "import plistlib,sys; print(plistlib.load(open(sys.argv[1],'rb'),"
                        "fmt=plistlib.FMT_XML))",
                        path("ours")}),
              "{'a <b>': '& \xc3\xbc'}\n");
}

TEST_F(FilesTest, DamagedPropertyListsGiveAReason) {
    std::string deep = "<plist version=\"1.0\">";
    for (int i = 0; i < 100'000; ++i)
        deep += "<array>";
    const std::string dictionary = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>";
    for (const std::string& content :
         {std::string(), std::string("noise"), std::string(1000, '\0'), std::string("bplist00"),
          std::string("bplist00") + std::string(64, '\xff'), deep, dictionary,
          dictionary + "<key>a</key>", dictionary + "<key>a</key><string>b</key></dict></plist>",
          std::string((4 << 20) + 1, ' ')}) {
        TestSandbox::write(path("file"), content);
        const auto value = readPropertyListFile(path("file"));
        if (!value)
            EXPECT_FALSE(value.error().empty());
        else
            EXPECT_TRUE(value->is_object()) << content.substr(0, 100);
    }
    EXPECT_FALSE(readPropertyListFile(path("missing")));
}

}  // namespace
}  // namespace quorl
