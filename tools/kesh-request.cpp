// A client of the login agent's local channel: sends one request, prints the answer.
#include "AgentClient.h"
#include "KeyedArchive.h"
#include "SystemPaths.h"

#include <fmt/core.h>
#include <getopt.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace quorl;
using SteadyClock = std::chrono::steady_clock;

enum ExitStatus : int { success = 0, otherAnswer = 1, noAnswer = 2, wrongUsage = 64 };

constexpr std::string_view help = R"(usage: kesh-request [options]

Sends one request to the login agent on this machine, waits for the answer and
prints it as JSON on standard output.

The request dictionary:
  --mfa-request-url PATH       "MFA_REQUEST_URL": path and query of the MFA page,
                               below the server's base URL; asks for the online flow
  --offline-mfa                "OFFLINE_MFA": asks for the offline flow
  --user-name NAME             "USER_NAME": who logs on (offline flow)
  --domain-name NAME           "DOMAIN_NAME": that user's domain (offline flow)
  --mfa-error-msg IDENTIFIER   "MFA_ERROR_MSG": shows the error text of that identifier
  --error-msg TEXT             "ERROR_MSG": shows that error text
  --json                       reads the dictionary as a JSON object from standard
                               input; the options above are added to it. Body and
                               headers of the page request, "POST_DATA" and
                               "REQUEST_HEADERS", go this way alone: everybody on
                               the machine can read a command line

Where and how long:
  --runtime-dir FOLDER         folder of the agent's socket
                               (default: {runtimeDir})
  --timeout SECONDS            how long to wait for the answer, from 1 to 86400
                               (default: 120)
  --help                       shows this text

Exit status:
  0   the answer's "MFA_AUTH_RESULT" is "SUCCESS"
  1   any other answer
  2   no answer: the agent cannot be reached, it dropped the request (a newer one
      replaced it, or the agent ended), or the time is up; standard error says which
  64  wrong usage
)";

struct Options {
    Value request = Value::object();
    bool readsJson = false;
    std::string runtimeDir = systemPaths().runtimeDir;
    std::chrono::seconds timeout{120};
};

int complain(ExitStatus status, std::string_view reason) {
    fmt::print(stderr, "kesh-request: {}\n", reason);
    return status;
}

std::optional<std::chrono::seconds> parseTimeout(std::string_view text) {
    int seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || seconds < 1 || seconds > 86'400)
        return std::nullopt;
    return std::chrono::seconds(seconds);
}

// The options that are an entry of the request each, by the entry's key.
constexpr std::array<std::pair<const char*, const char*>, 5> textOptions{{
    {"mfa-request-url", "MFA_REQUEST_URL"},
    {"user-name", "USER_NAME"},
    {"domain-name", "DOMAIN_NAME"},
    {"mfa-error-msg", "MFA_ERROR_MSG"},
    {"error-msg", "ERROR_MSG"},
}};

enum OptionCode : int {
    offlineMfa = 'a',
    json,
    runtimeDirectory,
    timeoutSeconds,
    showHelp,
    firstText = 'A',
};

std::vector<option> longOptions() {
    std::vector<option> options{
        {"offline-mfa", no_argument, nullptr, offlineMfa},
        {"json", no_argument, nullptr, json},
        {"runtime-dir", required_argument, nullptr, runtimeDirectory},
        {"timeout", required_argument, nullptr, timeoutSeconds},
        {"help", no_argument, nullptr, showHelp},
    };
    for (int i = 0; i < static_cast<int>(textOptions.size()); ++i)
        options.push_back({textOptions[i].first, required_argument, nullptr, firstText + i});
    options.push_back({});
    return options;
}

// The options, or the exit status when there is nothing to send.
tl::expected<Options, int> parseArguments(int argc, char** argv) {
    Options options;
    const std::vector<option> known = longOptions();
    for (int code; (code = getopt_long(argc, argv, "", known.data(), nullptr)) != -1;) {
        const std::string_view argument = optarg ? optarg : "";
        switch (code) {
            case offlineMfa:
                options.request["OFFLINE_MFA"] = true;
                break;
            case json:
                options.readsJson = true;
                break;
            case runtimeDirectory:
                options.runtimeDir = argument;
                break;
            case timeoutSeconds: {
                const auto timeout = parseTimeout(argument);
                if (!timeout)
                    return tl::unexpected(
                        complain(wrongUsage, "--timeout wants seconds, from 1 to 86400"));
                options.timeout = *timeout;
                break;
            }
            case showHelp:
                fmt::print(help, fmt::arg("runtimeDir", systemPaths().runtimeDir));
                return tl::unexpected(int{success});
            case '?':
                return tl::unexpected(complain(wrongUsage, "see kesh-request --help"));
            default:
                options.request[textOptions[static_cast<std::size_t>(code - firstText)].second] =
                    argument;
                break;
        }
    }
    if (optind < argc)
        return tl::unexpected(complain(wrongUsage, "only options are taken, see --help"));
    return options;
}

// Reads the dictionary from standard input and puts the options' entries over it.
bool addJson(Value& request) {
    const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    Value base = Value::parse(text, nullptr, false);
    if (!base.is_object())
        return false;
    base.merge_patch(request);
    request = std::move(base);
    return true;
}

AgentRequest::Result askAgent(const Options& options) {
    const auto end = SteadyClock::now() + options.timeout;
    auto request = AgentRequest::send({options.runtimeDir, agentAddress().account}, options.request,
                                      options.timeout);
    if (!request)
        return tl::unexpected(request.error());
    return request->wait(std::chrono::ceil<std::chrono::milliseconds>(end - SteadyClock::now()));
}

}  // namespace

int main(int argc, char** argv) {
    auto options = parseArguments(argc, argv);
    if (!options)
        return options.error();
    if (options->readsJson && !addJson(options->request))
        return complain(wrongUsage, "standard input holds no JSON object");
    if (!archive(options->request))
        return complain(wrongUsage, "the request holds what an archive cannot carry");
    const auto result = askAgent(*options);
    if (!result)
        return complain(result.error().kind == NoResult::Kind::unreadable ? otherAnswer : noAnswer,
                        result.error().reason);
    fmt::print("{}\n", result->dump(2, ' ', false, Value::error_handler_t::replace));
    return stringValue(*result, "MFA_AUTH_RESULT") == "SUCCESS" ? success : otherAnswer;
}
