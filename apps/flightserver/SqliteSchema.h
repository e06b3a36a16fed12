// SPDX-License-Identifier: MIT
#pragma once

#include "SqliteFile.h"
#include "Tokens.h"

// Opens a ledger for writing; makes one of a new file, and takes over one of the first version. Throws
// std::runtime_error for anything else.
SqliteFile openLedger(const std::string& path);

// The owner's number; he is entered if he is new.
std::int64_t ownerNumber(SqliteFile& file, const std::string& name);

class SqliteTokenBook : public TokenBook
{
public:
    explicit SqliteTokenBook(const std::string& path) : m_file(openLedger(path)) {}

    void add(const std::string& owner, const TokenHash& token) override;
    std::vector<TokenLine> list() override;
    std::size_t revoke(const std::string& owner, bool allButNewest) override;

private:
    SqliteFile m_file;
};
