// SPDX-License-Identifier: MIT
#pragma once

#include "SqliteFile.h"
#include "Store.h"

// The rows of an SQLite ledger.
class SqliteStore : public Store
{
public:
    SqliteStore(const std::string& path, Directory& directory);

    bool probe() override;
    [[nodiscard]] bool hasRoom() const override;
    const Owner* ownerNamed(const std::string& name);

private:
    void storeTogether(std::vector<Portion>& portions) override;
    std::int64_t kindOf(const Endpoint& endpoint) const override { return m_kinds.at(&endpoint); }
    void insert(const Row& row);
    void readChanges();
    void readTokens();

    SqliteFile m_file;
    SqliteFile::Statement m_insertRow;
    SqliteFile::Statement m_insertMission;
    SqliteFile::Statement m_version;
    std::int64_t m_versionRead = -1;
    std::int64_t m_lastRow = 0;
    std::unordered_map<const Endpoint*, std::int64_t> m_kinds;
};
