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

// Has the kernel acknowledge what it holds back to acknowledge later, and from here to the next reply
// everything at once. A client that writes a small header and then a small body, with Nagle's algorithm on,
// would wait for it: some 40 ms a request.
void acknowledgeAtOnce(int connection);
