#include "Doctor.h"

#include "Arguments.h"

#include <errno.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>

namespace quorl::control {
namespace {

constexpr std::string_view usage =
    "usage: keshctl doctor [--user USER] [--json]\n"
    "\n"
    "Looks at everything that a second factor needs on this machine, in order, and\n"
    "names the first broken link with what mends it. Ends within 20 s. Sends and\n"
    "prints no secret.\n"
    "\n"
    "  --user USER   also looks at USER's record\n"
    "  --json        a list of objects: number, name, mark, text, fix\n"
    "\n"
    "Exit status: the number of the first broken check, 0 when none is; 64 misused.\n";

constexpr std::array<Check, 20> allChecks = {{
    {"PAM profile", checkProfile},
    {"doors", checkDoors},
    {"module", checkModule},
    {"helper", checkHelper},
    {"configuration", checkConfiguration},
    {"switched on", checkSwitchedOn},
    {"way in without", checkWayIn},
    {"server's name", checkName},
    {"server's port", checkPort},
    {"certificate", checkCertificate},
    {"clock", checkClock},
    {"registration", checkRegistration},
    {"signed call", checkSignature},
    {"agent", checkAgent},
    {"login manager", checkLoginManager},
    {"autologin", checkAutologin},
    {"ssh", checkSshd},
    {"support folder", checkSupportFolder},
    {"user's name", checkSpelling},
    {"user's record", checkRecord},
}};

// All end well before the whole does.
constexpr std::chrono::seconds accountLimit{8};
constexpr std::chrono::seconds serverLimit{16};
constexpr std::chrono::seconds userLimit{10};

std::string_view word(Mark mark) {
    switch (mark) {
        case Mark::ok:
            return "ok";
        case Mark::note:
            return "note";
        case Mark::broken:
            return "broken";
        case Mark::skipped:
            return "skipped";
        case Mark::needsRoot:
            break;
    }
    return "needs root";
}

// A worker's answer; an empty object where it gave none in time.
Value answerOf(std::vector<std::string> words, std::chrono::milliseconds limit) {
    const auto said = Machine::worker(std::move(words), limit);
    Value answer = Value::parse(said.value_or(""), nullptr, false);
    return answer.is_object() ? answer : Value::object();
}

Examination examine(const Machine& machine, const std::optional<std::string>& user) {
    const std::string& path = getConfigFilePath();
    Examination examination{.machine = machine,
                            .config = readConfig(path),
                            .configReadable = access(path.c_str(), R_OK) == 0 || errno == ENOENT,
                            .asRoot = geteuid() == 0,
                            .user = user,
                            .account = {},
                            .server = {},
                            .personal = {}};
    examination.account =
        std::async(std::launch::async, [] { return answerOf({"account"}, accountLimit); }).share();
    examination.server =
        std::async(std::launch::async, [] { return answerOf({"server"}, serverLimit); }).share();
    examination.personal = std::async(std::launch::async, [user] {
                               return user ? answerOf({"user", *user}, userLimit) : Value::object();
                           }).share();
    return examination;
}

void printLine(std::size_t number, std::string_view name, const Finding& finding) {
    constexpr std::size_t indent = 30;
    say(fmt::format("{:<11}{:>2} {:<16}{}", word(finding.mark), number, name,
                    wrapped(shown(finding.text), indent)));
}

// What the checks wait for longer than a second is named, where somebody watches.
Finding await(std::future<Finding>& finding, std::string_view name) {
    if (isatty(STDERR_FILENO) != 0 &&
        finding.wait_for(std::chrono::seconds(1)) == std::future_status::timeout) {
        std::fflush(stdout);
        fmt::print(stderr, "... {}", name);
        finding.wait();
        fmt::print(stderr, "\r\033[K");
    }
    return finding.get();
}

void printJson(const std::vector<Finding>& findings) {
    Value list = Value::array();
    for (std::size_t i = 0; i < findings.size(); ++i)
        list.push_back({{"number", i + 1},
                        {"name", allChecks[i].name},
                        {"mark", word(findings[i].mark)},
                        {"text", findings[i].text},
                        {"fix", findings[i].fix}});
    say(list.dump(2, ' ', false, Value::error_handler_t::replace));
}

int run(const Machine& machine, const Words& words) {
    const auto arguments = Arguments::sort(words, {.valued = {"--user"}, .flags = {"--json"}});
    if (!arguments)
        return misused(doctorCommand, arguments.error());
    if (!arguments->plain().empty())
        return misused(doctorCommand, "see below");
    const bool json = arguments->has("--json");
    const Examination examination = examine(machine, arguments->value("--user"));
    std::vector<std::future<Finding>> looks;
    for (const Check& check : checks())
        looks.push_back(std::async(std::launch::async, check.look, std::cref(examination)));
    std::vector<Finding> findings;
    for (std::size_t i = 0; i < looks.size(); ++i) {
        findings.push_back(await(looks[i], allChecks[i].name));
        if (!json)
            printLine(i + 1, allChecks[i].name, findings.back());
    }
    std::size_t first = 0;
    while (first < findings.size() && findings[first].mark != Mark::broken)
        ++first;
    if (json)
        printJson(findings);
    if (first == findings.size())
        return exitDone;
    if (!json)
        say(fmt::format("\nFirst broken link: {} ({}).\n{}", first + 1, allChecks[first].name,
                        wrapped("To mend it: " + findings[first].fix, 0)));
    return static_cast<int>(first + 1);
}

}  // namespace

Finding ok(std::string text) {
    return {Mark::ok, std::move(text)};
}
Finding note(std::string text, std::string fix) {
    return {Mark::note, std::move(text), std::move(fix)};
}
Finding broken(std::string text, std::string fix) {
    return {Mark::broken, std::move(text), std::move(fix)};
}
Finding skipped(std::string text) {
    return {Mark::skipped, std::move(text)};
}
Finding needsRoot() {
    return {Mark::needsRoot, "only root can tell"};
}

std::span<const Check> checks() {
    return allChecks;
}

const Command doctorCommand{.name = "doctor",
                            .summary = "name the first thing that is broken, and what mends it",
                            .usage = usage,
                            .rootOnly = false,
                            .run = run};

}  // namespace quorl::control
