#include "CommonUtils.h"
#include "CryptoUtils.h"
#include "HttpClient.h"
#include "Subprocess.h"
#include "TestServer.h"

#include <regex>

namespace quorl::test {
namespace {

const std::string accessKey(64, '7');
const std::string path = "/mfa/verify";

/// HMAC-SHA256 as openssl computes it.
std::string hmacOf(const std::string& key, const std::string& message) {
    return outputOf({"sh", "-c", "printf %s \"$1\" | openssl dgst -sha256 -hmac \"$2\" -r", "sh",
                     message, key})
        .substr(0, 64);
}

/// The signed headers of the page's request.
Value signedHeaders(const std::string& key, const std::string& signedPath = path) {
    const std::string date = getCurrentUTCDate(systemClock());
    return {{"idm-date", date},
            {"Authorization",
             "Basic 1001:" + base64Encode(asBytes(hmacOf(key, date + "POST" + signedPath)))}};
}

class SignedPagesTest : public testing::Test {
  protected:
    SignedPagesTest() { trustTestAuthority(); }

    static std::string post(const TestServer& server, const std::string& to,
                            const std::string& form, const Value& headers) {
        const Value reply = HttpClient(CertificatePolicy::restrict)
                                .makeSyncRequest("POST", server.url(to), "", form, headers);
        return stringValue(reply, "RESPONSE_TEXT").value_or(reply.dump());
    }
    /// The sign-in that the page begins; nothing when the page refuses.
    static std::optional<std::string> begin(const TestServer& server, const std::string& nonce,
                                            const Value& headers) {
        const std::string form = "USER_NAME=alice&DOMAIN_NAME=EXAMPLE&MACHINE_NAME=m&SERVICE=sshd";
        const std::string page =
            post(server, path, nonce.empty() ? form : form + "&NONCE=" + nonce, headers);
        std::smatch found;
        if (!std::regex_search(page, found, std::regex("data-sign-in=\"([0-9a-f]{32})\"")))
            return std::nullopt;
        return found[1];
    }
    static std::string keyOf(const TestServer& server, const std::string& signIn) {
        std::string code =
            outputOf({"oathtool", "--totp", "--base32", "JBSWY3DPEHPK3PXPJBSWY3DPEHPK3PXP"});
        code.resize(6);
        const Value answer = Value::parse(post(
            server, "/mfa/check", "user=alice@EXAMPLE&code=" + code + "&sign_in=" + signIn, {}));
        return stringValue(answer.at("message"), "SYSTEM_MFA_KEY").value_or("none");
    }
    static std::string expectedKey(const std::string& nonce) {
        return hmacOf(accessKey, nonce + "\nalice\nEXAMPLE");
    }
};

TEST_F(SignedPagesTest, AKeyProvesThatThisRequestWasAnswered) {
    struct Case {
        const char* form;
        bool firstIsRight, secondIsRight;
    };
    for (const Case& c : {Case{"signed", true, true}, Case{"wrong", false, false},
                          Case{"missing", false, false}, Case{"replayed", true, false}}) {
        const TestServer server("server", {"--access-key", accessKey, "--page-key", c.form});
        const auto first = begin(server, "aa", signedHeaders(accessKey));
        const auto second = begin(server, "bb", signedHeaders(accessKey));
        ASSERT_TRUE(first && second) << c.form;
        EXPECT_EQ(keyOf(server, *first) == expectedKey("aa"), c.firstIsRight) << c.form;
        EXPECT_EQ(keyOf(server, *second) == expectedKey("bb"), c.secondIsRight) << c.form;
    }
}

TEST_F(SignedPagesTest, APageIsServedToASignatureAndANonceOnce) {
    const TestServer server("server", {"--access-key", accessKey, "--signed-pages"});
    EXPECT_TRUE(begin(server, "aa", signedHeaders(accessKey)));
    EXPECT_FALSE(begin(server, "aa", signedHeaders(accessKey))) << "a nonce twice";
    EXPECT_FALSE(begin(server, "", signedHeaders(accessKey))) << "no nonce";
    EXPECT_FALSE(begin(server, "bb", signedHeaders(std::string(64, '8')))) << "another key";
    EXPECT_FALSE(begin(server, "cc", signedHeaders(accessKey, "/mfa/other"))) << "another path";
    EXPECT_FALSE(begin(server, "dd", {})) << "unsigned";
}

}  // namespace
}  // namespace quorl::test
