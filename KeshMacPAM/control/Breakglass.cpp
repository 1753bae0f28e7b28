#include "Arguments.h"
#include "AtomicFile.h"
#include "Exemptions.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <charconv>
#include <filesystem>

namespace quorl::control {
namespace {

constexpr std::string_view usage =
    "usage: keshctl breakglass --for TIME\n"
    "       keshctl breakglass --off\n"
    "\n"
    "Lets everybody in by password alone until the time is over, or the machine\n"
    "restarts: the way in while the server's side is broken for long. TIME is a\n"
    "number with m or h behind it, from 1m to 24h. Noted in the journal, and so is\n"
    "each sign-in of that time.\n"
    "\n"
    "Exit status: 0 done, 1 failed, 64 misused, 77 not root.\n";

constexpr std::string_view path = "/run/kesh/breakglass";

std::optional<std::chrono::seconds> readTime(const std::string& text) {
    constexpr std::chrono::hours longest{24};
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const std::string unit(end, text.data() + text.size());
    if (error != std::errc() || number < 1 || number > 24 * 60 || (unit != "m" && unit != "h"))
        return std::nullopt;
    const auto time = number * (unit == "h" ? std::chrono::minutes(60) : std::chrono::minutes(1));
    return time <= longest ? std::optional<std::chrono::seconds>(time) : std::nullopt;
}

int begin(const Machine& machine, std::chrono::seconds time) {
    const std::string file = machine.file(path);
    std::error_code error;
    const auto folder = std::filesystem::path(file).parent_path();
    std::filesystem::create_directories(folder, error);
    chmod(folder.c_str(), 0755);
    const auto end =
        std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) + time;
    const std::string line = fmt::format("{}\n", end.time_since_epoch().count());
    if (auto written = replaceFile(file, asBytes(line), 0644); !written)
        return failed("no break-glass: " + file + ": " + written.error());
    // By the module's own eyes: one that it does not heed would open nothing.
    if (!pam::breakGlass(file.c_str(), end.time_since_epoch() - time))
        return failed("no break-glass: the module would not heed " + file);
    noteInJournal(fmt::format("break-glass for {} minutes", time.count() / 60));
    say(
        fmt::format("Until {:%F %T} everybody gets in by password alone.\n"
                    "`keshctl breakglass --off` ends it.",
                    fmt::localtime(std::chrono::system_clock::to_time_t(end))));
    return exitDone;
}

int end(const Machine& machine) {
    std::error_code error;
    const bool was = std::filesystem::remove(machine.file(path), error);
    if (error)
        return failed(machine.file(path) + " cannot be removed: " + error.message());
    if (was)
        noteInJournal("break-glass ended");
    say(was ? "The break-glass has ended." : "There was no break-glass.");
    return exitDone;
}

int run(const Machine& machine, const Words& words) {
    const auto arguments = Arguments::sort(words, {.valued = {"--for"}, .flags = {"--off"}});
    if (!arguments)
        return misused(breakglassCommand, arguments.error());
    const bool off = arguments->has("--off");
    if (!arguments->plain().empty() || off == arguments->has("--for"))
        return misused(breakglassCommand, "see below");
    if (off)
        return end(machine);
    const auto time = readTime(*arguments->value("--for"));
    return time ? begin(machine, *time) : misused(breakglassCommand, "the time is from 1m to 24h");
}

}  // namespace

const Command breakglassCommand{.name = "breakglass",
                                .summary = "let everybody in by password alone for a while",
                                .usage = usage,
                                .rootOnly = true,
                                .run = run};

}  // namespace quorl::control
