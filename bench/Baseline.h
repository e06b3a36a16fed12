// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>
#include <sqlite3.h>

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <memory>
#include <vector>

// The same work without the library: the SQLite C API with the pragmas of a mission file, and libcurl.

class Database
{
public:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

    explicit Database(const QString& file);

    void run(const QByteArray& sql);
    Statement prepare(const char* sql);
    qint64 number(const QByteArray& sql);
    // Makes ids of the library's available to statements, as new_id().
    void provideIds();
    // Executes an insert and makes it ready for the next row.
    void insert(const Statement& statement);

private:
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close(database); }
    };
    void check(bool ok) const;
    std::unique_ptr<sqlite3, Close> m_database;
};

void bindText(const Database::Statement& statement, int index, const QByteArray& text);

// Posts bodies over one connection, one after the other.
class Poster
{
public:
    Poster(const QByteArray& url, const char* path);
    ~Poster();
    Poster(const Poster&) = delete;
    Poster& operator=(const Poster&) = delete;
    // The server has to accept it.
    void post(const QByteArray& body);

private:
    CURL* m_curl;
};

// Up to 1000 waiting rows of the log as the body of a request, and their ids, quoted and joined.
struct LogBatch {
    QByteArray body;
    QByteArray ids;
};
LogBatch readLogBatch(Database& database);
void markLogBatch(Database& database, const LogBatch& batch);
