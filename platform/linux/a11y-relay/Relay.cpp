#include "Relay.h"

#include "AccessibilityBus.h"

#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <optional>
#include <vector>

namespace quorl {
namespace {

// The agent, its pages' processes and their proxies are a handful.
constexpr std::size_t mostClients = 32;

std::optional<uid_t> accountAt(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return std::nullopt;
    return peer.uid;
}

}  // namespace

void Relay::step(int timeout) {
    std::vector<pollfd> entries = {
        {.fd = options_.listener.get(), .events = POLLIN, .revents = 0},
        {.fd = options_.display, .events = POLLIN, .revents = 0},
    };
    for (const RelayedClient& client : clients_) {
        entries.push_back(client.clientEntry());
        entries.push_back(client.busEntry());
    }
    if (poll(entries.data(), entries.size(), timeout) <= 0)
        return;
    auto entry = entries.begin() + 2;
    for (auto client = clients_.begin(); client != clients_.end(); entry += 2)
        client = client->serve(entry->revents, (entry + 1)->revents) ? std::next(client)
                                                                     : clients_.erase(client);
    if (entries[1].revents != 0 && options_.displayReady)
        options_.displayReady();
    if (entries[0].revents != 0)
        accept();
}

void Relay::accept() {
    FileDescriptor client(accept4(options_.listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client)
        return;
    if (accountAt(client.get()) != options_.served) {
        syslog(LOG_WARNING, "a program of another account than the agent's is turned away");
        return;
    }
    if (clients_.size() == mostClients) {
        syslog(LOG_WARNING, "too many clients at once");
        return;
    }
    const auto address = soleBusSocket(options_.busAddress());
    if (!address)
        return;
    const uid_t listeners[] = {0, geteuid()};
    auto bus = admittedBy(*address, listeners);
    if (!bus) {
        syslog(LOG_WARNING, "the accessibility bus does not let us in");
        return;
    }
    clients_.emplace_back(std::move(client), std::move(bus->socket), std::move(bus->guid));
}

}  // namespace quorl
