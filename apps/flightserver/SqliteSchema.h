// SPDX-License-Identifier: MIT
#pragma once

#include "SqliteFile.h"
#include "Tokens.h"

// Opens a ledger for writing; makes one of a new file, and takes over one of the first version. Throws
// std::runtime_error for anything else. Where it must exist nothing is made, nor taken over.
SqliteFile openLedger(const std::string& path, SqliteFile::Opening opening = SqliteFile::Opening::MayCreate);

// The owner's number; he is entered if he is new.
std::int64_t ownerNumber(SqliteFile& file, const std::string& name);

class SqliteTokenBook : public TokenBook
{
public:
    SqliteTokenBook(const std::string& path, SqliteFile::Opening opening) : m_file(openLedger(path, opening))
    {
    }

    void add(const std::string& owner, const TokenHash& token) override;
    std::vector<TokenLine> list() override;
    std::size_t revoke(const std::string& owner, bool allButNewest) override;

private:
    SqliteFile m_file;
};
