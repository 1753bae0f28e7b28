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
        std::vector<std::string> openssl = {"openssl",
                                            "enc",
                                            "-aes-256-cbc",
                                            "-K",
                                            convertDataBytesToHex(someKey),
                                            "-iv",
                                            convertDataBytesToHex(iv),
                                            "-in",
                                            input};
        TestSandbox::write(input, plain);
        const auto cipher = encryptData(asBytes(plain), someKey, iv);
        ASSERT_TRUE(cipher);
        EXPECT_EQ(outputOf(openssl), asText(*cipher));
        TestSandbox::write(input, toString(*cipher));
        openssl.emplace_back("-d");
        EXPECT_EQ(outputOf(openssl), plain);
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

TEST(DerivedKey, EqualsAnIndependentDerivation) {
    const std::string script =
        "import base64,hashlib,sys;"
        "k=hashlib.pbkdf2_hmac('sha256',sys.argv[1].encode(),b'',10000,32);"
        "print(base64.b64encode(k).decode(),end='')";
    for (const std::string& input : {std::string(""), std::string("access key"),
                                     std::string("Schlüssel"), std::string(200, 'k')})
        EXPECT_EQ(generateAESKeyFromInput(input), outputOf({"python3", "-c", script, input}));
}

TEST(RandomKey, IsThirtyTwoBytesAndNeverTheSame) {
    const auto one = generateBase64EncodedAESKey();
    ASSERT_TRUE(one);
    EXPECT_EQ(base64Decode(*one)->size(), 32U);
    EXPECT_NE(one, generateBase64EncodedAESKey());
}

// RFC 2202 (SHA1), RFC 4231 (SHA256, SHA512): a short key, and one longer than a block.
TEST(Hmac, GivesTheDigestsOfTheStandards) {
    const std::string longMessage = "Test Using Larger Than Block-Size Key - Hash Key First";
    struct Vector {
        const char* algorithm;
        Bytes key;
        std::string message;
        const char* digest;
    };
    for (const Vector& v : std::vector<Vector>{
             {"SHA1", Bytes(20, 0x0b), "Hi There", "b617318655057264e28bc0b6fb378c8ef146be00"},
             {"SHA1", Bytes(80, 0xaa), longMessage, "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
             {"SHA256", toBytes("Jefe"), "what do ya want for nothing?",
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
             {"SHA256", Bytes(131, 0xaa), longMessage,
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
             {"SHA512", toBytes("Jefe"), "what do ya want for nothing?",
              "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea250554"
              "9758bf75c05a994a6d034f65f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"},
             {"SHA512", Bytes(131, 0xaa), longMessage,
              "80b24263c7c1a3ebb71493c1dd7be8b49b46d1f41b4aeec1121b013783f8f352"
              "6b56d037e05f2598bd0fd2215d6a1e5295e64f73f63f0aec8b915a985d786598"}}) {
        Hmac hmac(*hashAlgorithm(v.algorithm), v.key);
        EXPECT_EQ(convertDataBytesToHex(hmac.digest(asBytes(v.message)).view()), v.digest);
        // A kept key serves one message after the other.
        hmac.digest(asBytes("another message"));
        EXPECT_EQ(convertDataBytesToHex(hmac.digest(asBytes(v.message)).view()), v.digest);
    }
    EXPECT_FALSE(hashAlgorithm("sha1"));
    EXPECT_FALSE(hashAlgorithm("MD5"));
}

TEST(Hmac, SignsAsciiTextAlone) {
    EXPECT_EQ(convertDataBytesToHex(getHMACSHA256Hash("Jefe", "what do ya want for nothing?")),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_TRUE(getHMACSHA256Hash("schlüssel", "text").empty());
    EXPECT_TRUE(getHMACSHA256Hash("key", "téxt").empty());
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
