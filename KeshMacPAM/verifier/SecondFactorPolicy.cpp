#include "SecondFactorPolicy.h"

namespace quorl {
namespace {

Decision withoutServer(const SecondFactorSettings& settings, OfflineState offline) {
    // Never bypassed, or pulling the cable would beat the limit.
    if (offline == OfflineState::limitReached)
        return Decision::denyLimitReached;
    if (settings.enforced)
        return Decision::denyUnreachableEnforced;
    return settings.bypassWhenUnreachable ? Decision::ignoreUnreachable : Decision::denyUnreachable;
}

}  // namespace

Decision decide(const SecondFactorSettings& settings, OfflineState offline, Way way,
                ServerState server) {
    switch (settings.state) {
        case ConfigState::missing:
            return Decision::ignoreNeverSetUp;
        case ConfigState::damaged:
            return Decision::denyDamaged;
        case ConfigState::whole:
            break;
    }
    if (!settings.secondFactorOn)
        return Decision::ignoreSwitchedOff;
    if (server == ServerState::answers && way == Way::window)
        return Decision::onlinePage;
    if (offline == OfflineState::allowed)
        return way == Way::window ? Decision::offlinePage : Decision::offlineCodes;
    switch (server) {
        case ServerState::answers:
            return Decision::denyFirstAtLoginScreen;
        case ServerState::silent:
            return withoutServer(settings, offline);
        case ServerState::wrongCertificate:
            break;
    }
    // Never bypassed: whoever stands between could bring that about.
    return Decision::denyCertificate;
}

std::optional<Decision> decideWithoutServer(const SecondFactorSettings& settings,
                                            OfflineState offline, Way way) {
    const Decision decision = decide(settings, offline, way, ServerState::answers);
    for (const ServerState server : {ServerState::silent, ServerState::wrongCertificate})
        if (decide(settings, offline, way, server) != decision)
            return std::nullopt;
    return decision;
}

}  // namespace quorl
