// SPDX-License-Identifier: MIT
#pragma once

#include "Faults.h"
#include "Limits.h"

#include <optional>
#include <string>
#include <vector>

class QCoreApplication;

struct Place {
    std::string host;
    int port = 0; // 0: any free one
};

struct Options {
    std::vector<std::string> command; // empty: serve
    Place place;
    std::optional<Place> admin;
    std::string token; // empty: none
    bool requireToken = false;
    std::string tlsCertificate; // empty: plain HTTP
    std::string tlsKey;
    std::string ledger;
    bool requireSync = false;
    std::string accessLog; // empty: none
    bool allButNewest = false;
    Limits limits;
    std::vector<Fault> faults;
};

// Ends the program after --help and --version; throws std::runtime_error with words for the user.
Options parseOptions(const QCoreApplication& application);
