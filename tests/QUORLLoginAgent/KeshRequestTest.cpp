// kesh-request and the client of the documentation, as programs, against a service that answers.
#include "FakeAgent.h"
#include "Subprocess.h"
#include "TestSandbox.h"

#include <gmock/gmock.h>

namespace quorl::test {
namespace {

using testing::HasSubstr;

class KeshRequestTest : public testing::Test {
  protected:
    /// A service that gives the answer; see FakeAgent.
    void serve(const std::optional<Value>& answer) {
        agent_.emplace(file("run"), [answer](const Value&) { return answer; });
    }
    int run(std::vector<std::string> arguments, const std::string& input = "") {
        TestSandbox::write(file("in"), input);
        arguments.insert(arguments.begin(), QUORL_BINARY_DIR "/bin/kesh-request");
        return Subprocess({.command = arguments,
                           .output = file("out"),
                           .errors = file("err"),
                           .input = file("in")})
            .wait()
            .value_or(-1);
    }
    std::string file(const std::string& name) const { return (sandbox_.root() / name).string(); }
    Value output() const { return Value::parse(TestSandbox::read(file("out")), nullptr, false); }
    std::string errors() const { return TestSandbox::read(file("err")); }
    Value request() {
        const auto all = agent_->requests();
        return all.empty() ? Value() : all.back();
    }

    TestSandbox sandbox_;
    std::optional<FakeAgent> agent_;
};

TEST_F(KeshRequestTest, SendsItsOptionsAndPrintsTheAnswer) {
    const Value answer = {{"MFA_AUTH_RESULT", "SUCCESS"}, {"KEY", "schlüssel"}};
    serve(answer);
    EXPECT_EQ(run({"--mfa-request-url", "/mfa?a=b", "--json"},
                  R"({"POST_DATA": "x=1", "REQUEST_HEADERS": {"A": "b", "C": "d=e"}})"),
              0);
    EXPECT_EQ(output(), answer);
    EXPECT_EQ(request(), Value({{"MFA_REQUEST_URL", "/mfa?a=b"},
                                {"POST_DATA", "x=1"},
                                {"REQUEST_HEADERS", {{"A", "b"}, {"C", "d=e"}}}}));

    EXPECT_EQ(run({"--json", "--user-name", "bob"},
                  R"({"OFFLINE_MFA": 1, "USER_NAME": "alice", "DOMAIN_NAME": "D"})"),
              0);
    EXPECT_EQ(request(), Value({{"OFFLINE_MFA", 1}, {"USER_NAME", "bob"}, {"DOMAIN_NAME", "D"}}));
}

TEST_F(KeshRequestTest, AnyOtherAnswerIsOneAndNoneIsTwo) {
    serve(Value{{"MFA_AUTH_RESULT", "success"}});
    EXPECT_EQ(run({"--offline-mfa", "--mfa-error-msg", "I", "--error-msg", "T"}), 1);
    EXPECT_EQ(request(),
              Value({{"OFFLINE_MFA", true}, {"MFA_ERROR_MSG", "I"}, {"ERROR_MSG", "T"}}));
    agent_.reset();
    EXPECT_EQ(run({"--offline-mfa"}), 2);
    EXPECT_THAT(errors(), HasSubstr("the agent cannot be reached"));
    serve(std::nullopt);
    EXPECT_EQ(run({"--offline-mfa"}), 2);
    EXPECT_THAT(errors(), HasSubstr("the agent dropped the request"));
}

TEST_F(KeshRequestTest, WrongUsageSendsNothing) {
    serve(Value{{"MFA_AUTH_RESULT", "SUCCESS"}});
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--timeout", "0"}, ""},     {{"--timeout", "5s"}, ""}, {{"--request-header", "A=b"}, ""},
        {{"--post-data", "x=1"}, ""}, {{"--unknown"}, ""},       {{"stray"}, ""},
        {{"--json"}, "[1]"},          {{"--json"}, "{"},         {{"--json"}, R"({"A":"\u0000"})"},
    };
    for (const auto& [arguments, input] : cases)
        EXPECT_EQ(run(arguments, input), 64) << arguments[0] << " " << input;
    EXPECT_EQ(request(), Value());
}

TEST_F(KeshRequestTest, TheClientOfTheDocumentationWorks) {
    const std::string page = TestSandbox::read(QUORL_SOURCE_DIR "/docs/local-channel.md");
    const std::string fence = "```python\n";
    const auto begin = page.find(fence) + fence.size();
    TestSandbox::write(file("client.py"), page.substr(begin, page.find("```", begin) - begin));
    serve(Value{{"MFA_AUTH_RESULT", "SUCCESS"}, {"KEY", ""}});
    const std::string script =
        "import client; r = client.ask({'USER_NAME': 'älice', "
        "'REQUEST_HEADERS': {'A': 'b'}}, path='" +
        file("run") +
        "/com.tav.quorl.QUORLLoginAgent'); "
        "print(sorted(r.items()))";
    EXPECT_EQ(outputOf({"env", "PYTHONDONTWRITEBYTECODE=1",
                        "PYTHONPATH=" + sandbox_.root().string(), "python3", "-c", script}),
              "[('KEY', ''), ('MFA_AUTH_RESULT', 'SUCCESS')]\n");
    EXPECT_EQ(request(), Value({{"USER_NAME", "älice"}, {"REQUEST_HEADERS", {{"A", "b"}}}}));
}

}  // namespace
}  // namespace quorl::test
