// SPDX-License-Identifier: MIT
#include "SqliteSchema.h"

#include "Records.h"

#include <iostream>

namespace
{
constexpr std::int64_t Version = 2;

// A commit that has been reported must survive a loss of power: FULL syncs the write-ahead log at each. Ids
// of many senders come from all over the index: a long log (in pages) writes a page back once, not for every
// batch.
constexpr const char* SetUp = R"(
PRAGMA synchronous=FULL;
PRAGMA wal_autocheckpoint=16384;
PRAGMA journal_size_limit=134217728;
PRAGMA cache_size=-32768;)";

// The key leads with kind and id, so that a reader finds a row without knowing whose it is.
constexpr const char* CreateTables = R"(
CREATE TABLE owner(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE token(id INTEGER PRIMARY KEY, owner INTEGER NOT NULL REFERENCES owner(id), hash BLOB NOT NULL UNIQUE,
    created TEXT NOT NULL, revoked TEXT);
CREATE TABLE kind(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE);
CREATE TABLE record(kind INTEGER NOT NULL, id TEXT NOT NULL, owner INTEGER NOT NULL, times INTEGER NOT NULL,
    mission TEXT NOT NULL, json TEXT NOT NULL, UNIQUE(kind,id,owner));
CREATE VIEW "row"(owner,kind,id,mission,json,times) AS
    SELECT o.name, k.name, r.id, r.mission, r.json, r.times
    FROM record r JOIN kind k ON k.id=r.kind JOIN owner o ON o.id=r.owner;
PRAGMA user_version=2;)";

constexpr const char* SetFirstVersionAside = R"(ALTER TABLE "row" RENAME TO row_of_first_version)";
constexpr const char* TakeOver = R"(
INSERT INTO owner(name) VALUES('demo');
INSERT OR IGNORE INTO kind(name) SELECT DISTINCT kind FROM row_of_first_version;
INSERT INTO record(kind,id,owner,times,mission,json)
    SELECT k.id, r.id, o.id, r.times, r.mission, r.json
    FROM row_of_first_version r JOIN kind k ON k.name=r.kind JOIN owner o ON o.name='demo'
    ORDER BY k.id, r.id;
DROP TABLE row_of_first_version;)";

constexpr const char* CountTables = "SELECT count(*) FROM sqlite_master";
constexpr const char* CountFirstVersion =
    "SELECT count(*) FROM pragma_table_info('row') WHERE name IN ('kind','id','mission','json','times')";
constexpr std::int64_t FirstVersionColumns = 5;

[[noreturn]] void refuse(const std::string& path, const std::string& why)
{
    throw std::runtime_error("ledger " + path + ": " + why);
}

bool isFirstVersion(SqliteFile& file)
{
    return file.number(CountFirstVersion) == FirstVersionColumns;
}

// Before anything is changed in the file.
void checkFile(SqliteFile& file, SqliteFile::Opening opening)
{
    if (file.isReadOnly()) {
        refuse(file.path(), "can only be read: it belongs to somebody else, or its disk takes no writes");
    }
    const std::int64_t version = file.number("PRAGMA user_version");
    if (version > Version) {
        refuse(file.path(), "made by a newer flightserver");
    }
    if (version < Version && file.number(CountTables) > 0 && !isFirstVersion(file)) {
        refuse(file.path(), "a database of something else");
    }
    if (version < Version && opening == SqliteFile::Opening::Existing) {
        refuse(file.path(), "holds no tokens yet; a server or \"token add\" makes a ledger of it");
    }
}

void createTables(SqliteFile& file)
{
    file.execute(CreateTables);
    SqliteFile::Statement insert = file.prepare("INSERT INTO kind(name) VALUES(?1)");
    for (const Endpoint& endpoint : Endpoints) {
        insert.bind(1, endpoint.kind);
        insert.run();
    }
}

void makeOrTakeOver(SqliteFile& file)
{
    file.transaction([&file] {
        if (file.number("PRAGMA user_version") == Version) {
            return; // as always, or another process was quicker
        }
        const bool takesOver = isFirstVersion(file);
        if (takesOver) {
            std::cerr << "flightserver: ledger " << file.path() << ": taking over what the first version kept"
                      << std::endl;
            file.execute(SetFirstVersionAside);
        }
        createTables(file);
        if (takesOver) {
            file.execute(TakeOver);
        }
    });
}
} // namespace

SqliteFile openLedger(const std::string& path, SqliteFile::Opening opening)
{
    try {
        SqliteFile file(path, opening);
        checkFile(file, opening);
        const std::string mode = file.text("PRAGMA journal_mode=WAL");
        if (mode != "wal" && mode != "memory") {
            refuse(file.path(), "its file system takes no write-ahead log");
        }
        file.execute(SetUp);
        makeOrTakeOver(file);
        file.rememberPlace();
        return file;
    } catch (const SqliteError& error) {
        refuse(path, error.what());
    }
}

std::int64_t ownerNumber(SqliteFile& file, const std::string& name)
{
    SqliteFile::Statement insert = file.prepare("INSERT INTO owner(name) VALUES(?1) ON CONFLICT DO NOTHING");
    insert.bind(1, name);
    SqliteFile::Statement select = file.prepare("SELECT id FROM owner WHERE name=?1");
    select.bind(1, name);
    if (!select.step()) {
        insert.run();
        select.step();
    }
    const std::int64_t number = select.number(0);
    select.run();
    return number;
}

void SqliteTokenBook::add(const std::string& owner, const TokenHash& token)
{
    m_file.transaction([&] {
        SqliteFile::Statement insert =
            m_file.prepare("INSERT INTO token(owner,hash,created) VALUES(?1,?2,datetime('now'))");
        insert.bind(1, ownerNumber(m_file, owner));
        insert.bindBlob(2, token.data(), token.size());
        insert.run();
    });
}

std::vector<TokenLine> SqliteTokenBook::list()
{
    std::vector<TokenLine> lines;
    SqliteFile::Statement select = m_file.prepare(
        "SELECT o.name, t.created, ifnull(t.revoked,'') FROM token t JOIN owner o ON o.id=t.owner "
        "ORDER BY o.name, t.id");
    while (select.step()) {
        lines.push_back({select.text(0), select.text(1), select.text(2)});
    }
    return lines;
}

std::size_t SqliteTokenBook::revoke(const std::string& owner, bool allButNewest)
{
    std::size_t revoked = 0;
    m_file.transaction([&] {
        SqliteFile::Statement update = m_file.prepare("UPDATE token SET revoked=datetime('now') WHERE "
                                                      "revoked IS NULL AND owner=(SELECT id FROM owner WHERE "
                                                      "name=?1) AND (NOT ?2 OR id<(SELECT max(id) FROM token "
                                                      "t WHERE t.owner=token.owner)) RETURNING 1");
        update.bind(1, owner);
        update.bind(2, std::int64_t{allButNewest});
        while (update.step()) {
            ++revoked;
        }
    });
    return revoked;
}
