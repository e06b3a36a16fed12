// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

// httplib keeps its sockets to itself; these find them among the open files of the process.

// The accepted connections of the server that listens on this port.
std::vector<int> connectionsOf(int port);

// The one of them that comes from this port of a client; -1 if there is none.
int connectionFrom(int port, int clientPort);

// True when the client has closed its side.
bool isAbandoned(int connection);
