// SPDX-License-Identifier: MIT
#pragma once

#include "PgConnection.h"

// The rows of a ledger on PostgreSQL, written through one connection. A transaction is one statement, and
// every one writes: one that only found its rows there would be told without a word from the standby, while
// the transaction that brought them may still wait for it.
class PgStore : public Store
{
public:
    // requiresSync: nothing is stored without a synchronous standby.
    PgStore(const std::string& uri, Directory& directory, bool requiresSync);

    bool probe() override;
    // Looks for new tokens.
    void idle() override;
    const Owner* ownerNamed(const std::string& name);
    // Connects, or throws PgError.
    void open();

private:
    struct Columns;
    void storeTogether(std::vector<Portion>& portions) override;
    std::int64_t kindOf(const Endpoint& endpoint) const override { return &endpoint - Endpoints; }
    Columns merge(const std::vector<Row>& rows) const;
    bool write(const Columns& columns, std::vector<Portion>& portions);
    void checkStandby();
    void readTokens();

    PgConnection m_connection;
    const bool m_requiresSync;
    std::int64_t m_tokensRead = -1;
};
