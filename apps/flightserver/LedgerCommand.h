// SPDX-License-Identifier: MIT
#pragma once

#include "Options.h"

// "token add NAME", "token list", "token revoke NAME" on a ledger, whether a server runs on it or not, and
// "ledger init" for one on PostgreSQL; the exit code. Throws std::runtime_error with words for the user.
int runLedgerCommand(const Options& options);
