// SPDX-License-Identifier: MIT
#include "Connections.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>

namespace
{
using NameCall = int (*)(int, sockaddr*, socklen_t*);

// -1 for anything that is no connected TCP socket.
int portOf(int descriptor, NameCall nameOf)
{
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    if (nameOf(descriptor, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        return -1;
    }
    if (address.ss_family == AF_INET) {
        return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    }
    if (address.ss_family == AF_INET6) {
        return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    }
    return -1;
}
} // namespace

std::vector<int> connectionsOf(int port)
{
    std::vector<int> connections;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::atoi(entry.path().filename().c_str());
        if (portOf(descriptor, getpeername) != -1 && portOf(descriptor, getsockname) == port) {
            connections.push_back(descriptor);
        }
    }
    return connections;
}

int connectionFrom(int port, int clientPort)
{
    for (const int connection : connectionsOf(port)) {
        if (portOf(connection, getpeername) == clientPort) {
            return connection;
        }
    }
    return -1;
}

bool isAbandoned(int connection)
{
    pollfd state{connection, POLLRDHUP, 0};
    return poll(&state, 1, 0) != 0;
}

void acknowledgeAtOnce(int connection)
{
#ifdef TCP_QUICKACK // Linux only
    const int yes = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_QUICKACK, &yes, sizeof(yes));
#else
    (void)connection;
#endif
}
