// SPDX-License-Identifier: MIT
#pragma once

#include "PgStore.h"
#include "QueuedLedger.h"

// The ledger of a fleet: a PostgreSQL database that several servers write to. What this one keeps in memory
// is what it has been asked to store and has not answered.
class PgLedger : public QueuedLedger
{
public:
    // Throws PgError where there is no such ledger now.
    PgLedger(const std::string& uri, bool requiresSync);
    // Stores what waits.
    ~PgLedger() override;

    const Owner* ownerNamed(const std::string& name) override;

private:
    const std::string m_uri;
    PgStore m_stores[2]; // while one waits for the standby, the other fills the next transaction
};

// Whether --ledger names a database and not a file.
bool isDatabase(const std::string& ledger);
