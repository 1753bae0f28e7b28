#include "CryptoUtils.h"
#include "Subprocess.h"

#include <algorithm>

namespace quorl {
namespace {

using test::outputOf;
using test::TestSandbox;

const Bytes someKey = toBytes("0123456789abcdef0123456789ABCDEF");

TEST(Cipher, AgreesWithAnIndependentProgramInBothDirections) {
    const TestSandbox sandbox;
    const std::string input = sandbox.root() / "input";
    for (const std::size_t size : {0, 1, 15, 16, 17, 4096}) {
        std::string plain(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            plain[i] = static_cast<char>(i * 7);
        const auto openssl = [&](const std::string& from, const char* direction) {
            TestSandbox::write(input, from);
            return outputOf({"openssl", "enc", "-aes-256-cbc", direction, "-in", input, "-K",
                             convertDataBytesToHex(someKey), "-iv", convertDataBytesToHex(iv)});
        };
        const auto cipher = encryptData(asBytes(plain), someKey, iv);
        ASSERT_TRUE(cipher);
        EXPECT_EQ(openssl(plain, "-e"), asText(*cipher));
        EXPECT_EQ(openssl(toString(*cipher), "-d"), plain);
        EXPECT_EQ(decryptData(*cipher, someKey, iv), toBytes(plain));
    }
}

TEST(Cipher, GivesNothingWhenItCannotDecrypt) {
    const Bytes cipher = *encryptData(asBytes("a secret of thirty-two bytes more"), someKey, iv);
    const ByteView whole(cipher);
    EXPECT_FALSE(decryptData(whole.first(31), someKey, iv));
    EXPECT_FALSE(decryptData(whole.first(32), someKey, iv)) << "padding cut off";
    EXPECT_FALSE(decryptData({}, someKey, iv));
    EXPECT_FALSE(decryptData(cipher, aesKey, iv)) << "wrong key";
    EXPECT_FALSE(decryptData(cipher, ByteView(someKey).first(31), iv));
    EXPECT_FALSE(encryptData(cipher, someKey, ByteView(iv).first(15)));
}

TEST(Cipher, TextSurvivesTheWayThereAndBackAndForeignBytesDoNot) {
    const std::string text = "Grüße, 日本語\n\"quoted\"";
    const auto stored = encryptText(text, someKey, iv);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored, encryptText(text, someKey, iv)) << "the vector is fixed";
    EXPECT_EQ(decrypt(*stored, someKey, iv), text);
    EXPECT_FALSE(decrypt(*stored + "\n", someKey, iv));
    EXPECT_FALSE(decrypt(*encryptText("\xff\xfe", someKey, iv), someKey, iv)) << "no UTF-8";
}

TEST(Base64, TakesTheStandardFormAlone) {
    for (const auto& [plain, text] :
         std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                          {"f", "Zg=="},
                                                          {"fo", "Zm8="},
                                                          {"foo", "Zm9v"},
                                                          {"foobar", "Zm9vYmFy"},
                                                          {"\xfb\xff", "+/8="}}) {
        EXPECT_EQ(base64Encode(asBytes(plain)), text);
        EXPECT_EQ(base64Decode(text), toBytes(plain));
    }
    for (const char* refused :
         {"Zg", "Zg=", "Zg==\n", " Zm9v", "Zm9v====", "Z===", "-_8=", "Zg==Zg==", "====", "Zm\n9v"})
        EXPECT_FALSE(base64Decode(refused)) << refused;
}

TEST(Wipe, LeavesNothingInTheMemoryOfAText) {
    std::string secret(100, 's');
    secret.resize(40);
    const char* memory = secret.data();
    wipe(secret);
    EXPECT_TRUE(secret.empty());
    ASSERT_EQ(secret.data(), memory);
    EXPECT_TRUE(std::all_of(memory, memory + 100, [](char c) { return c == '\0'; }));
}

}  // namespace
}  // namespace quorl
