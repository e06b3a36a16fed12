// SPDX-License-Identifier: MIT
#pragma once

#include "QueuedLedger.h"
#include "SqliteStore.h"

// The ledger in one file.
class SqliteLedger : public QueuedLedger
{
public:
    explicit SqliteLedger(const std::string& path);
    // Stores what waits.
    ~SqliteLedger() override;

    std::optional<Sender> senderOf(const TokenHash& token) override;
    const Owner* ownerNamed(const std::string& name) override { return m_store.ownerNamed(name); }

private:
    SqliteStore m_store;                  // of the thread, once it runs
    std::unique_ptr<SqliteFile> m_reader; // of the asking thread; none for a ledger in memory
    SqliteFile::Statement m_selectOwner;
};
