#include "StagedConfiguration.h"

#include "AtomicFile.h"
#include "ConfigParser.h"
#include "Machine.h"
#include "PropertyList.h"
#include "SystemPaths.h"

#include <sys/stat.h>

#include <filesystem>

namespace quorl::control {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t largestFile = std::size_t{4} << 20;
// Longer than the name look-up, the registration and one signed call may last together.
constexpr std::chrono::seconds tryLimit{60};

}  // namespace

StagedConfiguration::Done putIntoSupport(const std::string& path, const std::string& content) {
    const auto group = readersGroup();
    return replaceFile(path, asBytes(content), FileAccess(group ? 0640 : 0600, group))
        .map_error([&](const std::string& why) { return path + ": " + why; });
}

StagedConfiguration::StagedConfiguration(std::string supportFolder)
    : support_(std::move(supportFolder)),
      base_(support_ + "/.setup"),
      folder_(base_ + "/QUORLLoginAgent") {}

StagedConfiguration::Done StagedConfiguration::prepare(const Value& settings,
                                                       const std::optional<std::string>& key) {
    discard();
    if (mkdir(base_.c_str(), 0700) != 0 || mkdir(folder_.c_str(), 0700) != 0)
        return tl::unexpected(folder_ + " cannot be made");
    const auto xml = xmlPropertyList(settings);
    if (!xml)
        return tl::unexpected<std::string>("a setting holds what a configuration cannot hold");
    if (key)
        if (auto done = replaceFile(folder_ + "/value.key", asBytes(*key + "\n"), 0600); !done)
            return done;
    return replaceFile(folder_ + "/config.plist", asBytes(*xml), 0600);
}

bool StagedConfiguration::holdsNewIdentityFor(const Value& settings) const {
    const auto staged = readPropertyListFile(folder_ + "/config.plist");
    if (!staged || configText(*staged, "AGENT_ID").empty() ||
        configText(*staged, "ACCESS_KEY").empty())
        return false;
    const auto inUse = readPropertyListFile(support_ + "/config.plist");
    if (inUse && configText(*inUse, "ACCESS_KEY") == configText(*staged, "ACCESS_KEY"))
        return false;
    for (const char* key : {"SERVERNAME", "PORTNUMBER", "CONTEXT_PATH"})
        if (configText(*staged, key) != configText(settings, key))
            return false;
    return true;
}

tl::expected<std::string, std::string> StagedConfiguration::tryOut() const {
    const auto said = Machine::worker({"register"}, tryLimit, {"QUORL_SUPPORT_BASE=" + base_});
    if (!said)
        return tl::unexpected<std::string>("the server took too long; run setup again");
    const std::string line = trimmed(*said);
    if (line.starts_with("ok "))
        return line.substr(3);
    return tl::unexpected(line.empty() ? "the registration broke off; run setup again" : line);
}

StagedConfiguration::Done StagedConfiguration::takeEffect() const {
    for (const char* name : {"/value.key", "/config.plist"}) {
        std::error_code error;
        if (!fs::exists(folder_ + name, error))
            continue;
        const auto content = readFile(folder_ + name, largestFile);
        if (!content)
            return tl::unexpected(content.error());
        if (auto done = putIntoSupport(support_ + name, toString(*content)); !done)
            return done;
    }
    discard();
    return {};
}

void StagedConfiguration::discard() const {
    std::error_code ignored;
    fs::remove_all(base_, ignored);
}

}  // namespace quorl::control
