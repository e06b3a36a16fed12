// SPDX-License-Identifier: MIT
#pragma once

#include "Faults.h"

#include <optional>
#include <string>
#include <vector>

class QCoreApplication;

struct Options {
    std::string host;
    int port = 0; // 0: any free one
    std::optional<std::string> token;
    std::string tlsCertificate; // empty: plain HTTP
    std::string tlsKey;
    std::string ledger;
    std::vector<Fault> faults;
};

// Ends the program after --help and --version; throws std::runtime_error with words for the user.
Options parseOptions(const QCoreApplication& application);
