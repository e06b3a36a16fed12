// SPDX-License-Identifier: MIT
#include "Ledger.h"

#include <sqlite3.h>

namespace
{
// WAL with synchronous=NORMAL: a commit survives the end of this process, however it comes. Ids are random,
// so a batch touches pages all over the index: a long write-ahead log (in pages) writes them back once, not
// for every batch.
constexpr const char* SetUp = R"(
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
PRAGMA wal_autocheckpoint=16384;
PRAGMA cache_size=-65536;
CREATE TABLE IF NOT EXISTS row(kind TEXT NOT NULL, id TEXT NOT NULL, mission TEXT NOT NULL,
    json TEXT NOT NULL, times INTEGER NOT NULL, PRIMARY KEY(kind,id));
CREATE TABLE IF NOT EXISTS request(seq INTEGER PRIMARY KEY, path TEXT NOT NULL, mission TEXT NOT NULL,
    rows INTEGER NOT NULL, bytes INTEGER NOT NULL, status INTEGER NOT NULL);)";
constexpr const char* InsertRow = "INSERT INTO row(kind,id,mission,json,times) VALUES(?1,?2,?3,?4,1) "
                                  "ON CONFLICT(kind,id) DO UPDATE SET times=times+1, json=excluded.json";
constexpr const char* InsertRequest =
    "INSERT INTO request(path,mission,rows,bytes,status) VALUES(?1,?2,?3,?4,?5)";

constexpr int BusyMs = 5000;

// The bytes must stay until the statement has run.
void bindText(sqlite3_stmt* statement, int index, const QByteArray& text)
{
    sqlite3_bind_text(statement, index, text.constData(), text.size(), SQLITE_STATIC);
}
} // namespace

void Ledger::Close::operator()(sqlite3* database) const
{
    sqlite3_close(database);
}
void Ledger::Close::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

Ledger::Ledger(const std::string& file) : m_file(file)
{
    sqlite3* database = nullptr;
    const int result = sqlite3_open(file.c_str(), &database);
    m_database.reset(database);
    if (result != SQLITE_OK) {
        fail();
    }
    sqlite3_busy_timeout(database, BusyMs);
    execute(SetUp);
    m_insertRow = prepare(InsertRow);
    m_insertRequest = prepare(InsertRequest);
    execute("BEGIN IMMEDIATE; ROLLBACK"); // a file that can only be read shows here, not at the first request
}

void Ledger::store(const RequestLine& request, const Endpoint& endpoint, const Batch& batch)
{
    const std::lock_guard lock(m_mutex);
    execute("BEGIN IMMEDIATE");
    try {
        insertRecords(endpoint, batch);
        insertRequest(request, batch);
        execute("COMMIT");
    } catch (...) {
        // Some errors have rolled back already; then this one has nothing to do.
        sqlite3_exec(m_database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
        throw;
    }
}

void Ledger::storeRefused(const RequestLine& request)
{
    const std::lock_guard lock(m_mutex);
    insertRequest(request, {});
}

void Ledger::insertRecords(const Endpoint& endpoint, const Batch& batch)
{
    sqlite3_stmt* const insert = m_insertRow.get();
    sqlite3_bind_text(insert, 1, endpoint.kind, -1, SQLITE_STATIC);
    bindText(insert, 3, batch.mission);
    for (const Record& record : batch.records) {
        bindText(insert, 2, record.id);
        bindText(insert, 4, record.json);
        run(m_insertRow);
    }
}

void Ledger::insertRequest(const RequestLine& request, const Batch& batch)
{
    sqlite3_stmt* const insert = m_insertRequest.get();
    sqlite3_bind_text(insert, 1, request.path.c_str(), -1, SQLITE_STATIC);
    // A null QByteArray still has an empty text, so the column gets '' and not NULL.
    bindText(insert, 2, batch.mission);
    sqlite3_bind_int64(insert, 3, static_cast<sqlite3_int64>(batch.records.size()));
    sqlite3_bind_int64(insert, 4, static_cast<sqlite3_int64>(request.bytes));
    sqlite3_bind_int(insert, 5, request.status);
    run(m_insertRequest);
}

void Ledger::execute(const char* sql)
{
    if (sqlite3_exec(m_database.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail();
    }
}

Ledger::Statement Ledger::prepare(const char* sql) const
{
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(m_database.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
        SQLITE_OK) {
        fail();
    }
    return Statement(statement);
}

void Ledger::run(const Statement& statement)
{
    sqlite3_step(statement.get());
    if (sqlite3_reset(statement.get()) != SQLITE_OK) {
        fail();
    }
}

void Ledger::fail() const
{
    throw std::runtime_error("ledger " + m_file + ": " + sqlite3_errmsg(m_database.get()));
}
