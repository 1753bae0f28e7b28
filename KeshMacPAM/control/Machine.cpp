#include "Machine.h"

#include "AtomicFile.h"
#include "ProgramOutput.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>

namespace quorl::control {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t largestFile = std::size_t{4} << 20;
constexpr std::array<std::string_view, 4> programFolders = {"/usr/sbin/", "/usr/bin/", "/sbin/",
                                                            "/bin/"};

// Programs get the plain language of the system, so that what they say can be read.
const std::vector<std::string> plainEnvironment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                                   "LC_ALL=C.UTF-8",
                                                   "DEBIAN_FRONTEND=noninteractive", "HOME=/root"};

}  // namespace

bool Machine::has(std::string_view path) const {
    std::error_code error;
    return fs::exists(file(path), error);
}

std::string Machine::text(std::string_view path) const {
    const auto content = readFile(file(path), largestFile);
    return content ? toString(*content) : "";
}

std::vector<std::string> Machine::names(std::string_view folder) const {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator at(file(folder), error), end; !error && at != end;
         at.increment(error))
        names.push_back(at->path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

std::string Machine::program(std::string_view name) const {
    for (const std::string_view folder : programFolders)
        if (std::string path = file(std::string(folder) + std::string(name));
            access(path.c_str(), X_OK) == 0)
            return path;
    return "";
}

Machine::Output Machine::run(std::string_view name, std::vector<std::string> arguments,
                             std::chrono::milliseconds limit) const {
    const std::string path = program(name);
    if (path.empty())
        return tl::unexpected(std::string(name) + " is not installed");
    return readProgramOutput({.path = path,
                              .arguments = std::move(arguments),
                              .environment = plainEnvironment,
                              .timeLimit = limit});
}

Machine::Output Machine::worker(std::vector<std::string> words, std::chrono::milliseconds limit,
                                const std::vector<std::string>& variables) {
    words.insert(words.begin(), "--worker");
    std::vector<std::string> environment = variables;
    for (char** entry = environ; *entry; ++entry) {
        const std::string variable = *entry;
        const std::string name = variable.substr(0, variable.find('=') + 1);
        if (std::none_of(variables.begin(), variables.end(),
                         [&](const std::string& own) { return own.starts_with(name); }))
            environment.push_back(variable);
    }
    // By its own name, which log lines begin with.
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    return readProgramOutput({.path = self,
                              .arguments = std::move(words),
                              .environment = std::move(environment),
                              .timeLimit = limit});
}

std::string trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == text.npos
               ? ""
               : std::string(text.substr(first, text.find_last_not_of(blanks) - first + 1));
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    std::istringstream in{std::string(text)};
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    std::istringstream in{std::string(text)};
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

}  // namespace quorl::control
