// SPDX-License-Identifier: MIT
#pragma once

#include "PgConnection.h"

// Makes the tables of a ledger where there are none. Says what it did.
std::string initLedger(const std::string& uri);

// Connects, and sees that the database holds a ledger of this version in which commits are as safe as they
// are told to be.
void openLedger(PgConnection& connection);

// The owner's number; he is entered if he is new.
std::int64_t ownerNumber(PgConnection& connection, const std::string& name);

class PgTokenBook : public TokenBook
{
public:
    explicit PgTokenBook(const std::string& uri);

    void add(const std::string& owner, const TokenHash& token) override;
    std::vector<TokenLine> list() override;
    std::size_t revoke(const std::string& owner, bool allButNewest) override;

private:
    PgConnection m_connection;
};
