// SPDX-License-Identifier: MIT
#pragma once

#include "Records.h"
#include "Tokens.h"

#include <functional>
#include <optional>
#include <string>

// Who sends, as the ledger knows him.
struct Sender {
    const Owner* owner;
    std::optional<TokenHash> token; // none: let in whatever the ledger says
    bool mayBeUnknown = false;      // let in because no token had been given out
};

struct Result {
    enum class Outcome { Stored, Revoked, Refused, Failed };
    Outcome outcome = Outcome::Failed;
    std::string words;     // where it was not stored
    std::size_t again = 0; // rows that were there already
};

// The rows of a request on their way.
struct Delivery {
    Sender sender;
    Batch batch;
    std::function<void(Result)> done; // called once, on a thread of the ledger
};

// In place of a file: gone with the process.
constexpr const char* LedgerInMemory = ":memory:";

struct LedgerCounts {
    std::uint64_t commits = 0;
    std::uint64_t failures = 0; // of transactions, the disk's or the file's fault
    double commitSeconds = 0;
    std::uint64_t rows = 0;
    std::uint64_t again = 0;
};

// What the server has received. What it has reported as stored survives whatever happens to process, system
// and power.
class Ledger
{
public:
    Ledger() = default;
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;
    virtual ~Ledger() = default;

    // Takes what comes, and answers when it is stored. Does not wait.
    virtual void store(Delivery delivery) = 0;
    // Tells whether a write goes through now, and others have room.
    virtual void probe(std::function<void(bool)> done) = 0;

    // Who has this token; nobody: it is unknown or revoked. Asked for each request, so it may answer from
    // memory: a change that it has missed shows when the rows are stored.
    virtual std::optional<Sender> senderOf(const TokenHash& token) = 0;
    // Whether a token has ever been given out, as far as is known.
    [[nodiscard]] virtual bool knowsTokens() const = 0;
    virtual const Owner* ownerNamed(const std::string& name) = 0;

    [[nodiscard]] virtual LedgerCounts counts() const = 0;
};
