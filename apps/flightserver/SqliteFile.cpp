// SPDX-License-Identifier: MIT
#include "SqliteFile.h"

#include <sqlite3.h>

#include <cstring>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace
{
// Long enough for a command beside the server, short enough for a client that waits for its answer.
constexpr int BusyMs = 500;

StoreError::Fault faultOf(int code)
{
    switch (code) {
    case SQLITE_CONSTRAINT:
    case SQLITE_TOOBIG:
    case SQLITE_MISMATCH:
    case SQLITE_RANGE:
    case SQLITE_ERROR:
        return StoreError::Fault::Row;
    default:
        return StoreError::Fault::Store;
    }
}

[[noreturn]] void failFor(sqlite3* database)
{
    throw SqliteError(sqlite3_errcode(database), sqlite3_errmsg(database));
}
} // namespace

SqliteError::SqliteError(int code, const std::string& words) : StoreError(faultOf(code), words) {}

void SqliteFile::Close::operator()(sqlite3* database) const
{
    sqlite3_close(database);
}

void SqliteFile::Statement::Finalize::operator()(sqlite3_stmt* statement) const
{
    sqlite3_finalize(statement);
}

void SqliteFile::Statement::bind(int index, std::int64_t number)
{
    sqlite3_bind_int64(m_statement.get(), index, number);
}

void SqliteFile::Statement::bind(int index, std::string_view text)
{
    // A null pointer would be NULL, which an empty text is not.
    const char* const bytes = text.empty() ? "" : text.data();
    if (sqlite3_bind_text64(m_statement.get(), index, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8) !=
        SQLITE_OK) {
        failFor(sqlite3_db_handle(m_statement.get()));
    }
}

void SqliteFile::Statement::bindBlob(int index, const void* bytes, std::size_t size)
{
    sqlite3_bind_blob64(m_statement.get(), index, bytes, size, SQLITE_STATIC);
}

bool SqliteFile::Statement::step()
{
    if (sqlite3_step(m_statement.get()) == SQLITE_ROW) {
        return true;
    }
    if (sqlite3_reset(m_statement.get()) != SQLITE_OK) {
        failFor(sqlite3_db_handle(m_statement.get()));
    }
    return false;
}

void SqliteFile::Statement::run()
{
    while (step()) {
    }
}

std::int64_t SqliteFile::Statement::number(int column) const
{
    return sqlite3_column_int64(m_statement.get(), column);
}

std::string SqliteFile::Statement::text(int column) const
{
    const auto* const bytes = static_cast<const char*>(sqlite3_column_blob(m_statement.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column));
    return bytes == nullptr ? std::string() : std::string(bytes, size);
}

SqliteFile::SqliteFile(std::string path, Opening opening) : m_path(std::move(path))
{
    sqlite3* database = nullptr;
    const int create = opening == Opening::MayCreate ? SQLITE_OPEN_CREATE : 0;
    const int result = sqlite3_open_v2(m_path.c_str(), &database,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | create, nullptr);
    m_database.reset(database);
    if (result != SQLITE_OK) {
        const int cause = sqlite3_system_errno(database);
        throw SqliteError(result, std::string(sqlite3_errmsg(database)) +
                                      (cause != 0 ? std::string(": ") + std::strerror(cause) : ""));
    }
    sqlite3_busy_timeout(database, BusyMs);
}

void SqliteFile::rememberPlace()
{
    struct stat file {
    };
    if (stat(m_path.c_str(), &file) == 0) {
        m_device = file.st_dev;
        m_inode = file.st_ino;
    }
}

void SqliteFile::execute(const char* sql)
{
    if (sqlite3_exec(m_database.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail();
    }
}

SqliteFile::Statement SqliteFile::prepare(const char* sql)
{
    Statement statement;
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v3(m_database.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr) !=
        SQLITE_OK) {
        fail();
    }
    statement.m_statement.reset(prepared);
    return statement;
}

std::int64_t SqliteFile::number(const char* sql)
{
    Statement statement = prepare(sql);
    const std::int64_t value = statement.step() ? statement.number(0) : 0;
    statement.run();
    return value;
}

std::string SqliteFile::text(const char* sql)
{
    Statement statement = prepare(sql);
    std::string value = statement.step() ? statement.text(0) : std::string();
    statement.run();
    return value;
}

std::int64_t SqliteFile::lastRow() const
{
    return sqlite3_last_insert_rowid(m_database.get());
}

void SqliteFile::forgetLastRow()
{
    sqlite3_set_last_insert_rowid(m_database.get(), 0);
}

bool SqliteFile::isGone() const
{
    struct stat file {
    };
    return m_inode != 0 &&
           (stat(m_path.c_str(), &file) != 0 || file.st_dev != m_device || file.st_ino != m_inode);
}

bool SqliteFile::isReadOnly() const
{
    return sqlite3_db_readonly(m_database.get(), "main") == 1;
}

bool SqliteFile::hasRoomFor(std::size_t bytes) const
{
    struct statvfs disk {
    };
    return statvfs(m_path.c_str(), &disk) != 0 || disk.f_bavail >= bytes / disk.f_frsize;
}

// Some errors have rolled back already; then this one has nothing to do.
void SqliteFile::rollBack()
{
    sqlite3_exec(m_database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void SqliteFile::fail() const
{
    failFor(m_database.get());
}
