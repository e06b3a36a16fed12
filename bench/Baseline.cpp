// SPDX-License-Identifier: MIT
#include "Baseline.h"

#include "KvAlgorthm.h"
#include "MissionFile.h"
#include "Report.h"

namespace
{
const char* const SelectLog = "select * from flight_monitor_detail_log WHERE is_uploaded = 0 AND "
                              "flight_mission_id='5c02a798-84e5-5220-a4fe-a173392aa9c4' LIMIT 1000";
enum LogColumn { IdColumn, MessageColumn = 2, CreatedAtColumn };

QByteArray column(const Database::Statement& statement, int index)
{
    return {static_cast<const char*>(sqlite3_column_blob(statement.get(), index)),
            sqlite3_column_bytes(statement.get(), index)};
}

void newId(sqlite3_context* context, int /*count*/, sqlite3_value** /*values*/)
{
    const QByteArray id = UidToString(QUuid::createUuid()).toLatin1();
    sqlite3_result_text(context, id.constData(), id.size(), SQLITE_TRANSIENT);
}

size_t keepReply(const char* data, size_t size, size_t count, void* reply)
{
    static_cast<QByteArray*>(reply)->append(data, static_cast<int>(size * count));
    return size * count;
}
} // namespace

Database::Database(const QString& file)
{
    sqlite3* database = nullptr;
    const int result =
        sqlite3_open_v2(file.toUtf8().constData(), &database,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_database.reset(database);
    check(result == SQLITE_OK);
    sqlite3_busy_timeout(database, 30000);
    run("PRAGMA journal_mode=DELETE; PRAGMA synchronous=EXTRA; PRAGMA temp_store=MEMORY");
}

void Database::run(const QByteArray& sql)
{
    check(sqlite3_exec(m_database.get(), sql.constData(), nullptr, nullptr, nullptr) == SQLITE_OK);
}

Database::Statement Database::prepare(const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v2(m_database.get(), sql, -1, &statement, nullptr) == SQLITE_OK);
    return Statement(statement);
}

qint64 Database::number(const QByteArray& sql)
{
    const Statement statement = prepare(sql.constData());
    check(sqlite3_step(statement.get()) == SQLITE_ROW);
    return sqlite3_column_int64(statement.get(), 0);
}

void Database::provideIds()
{
    check(sqlite3_create_function(m_database.get(), "new_id", 0, SQLITE_UTF8, nullptr, newId, nullptr,
                                  nullptr) == SQLITE_OK);
}

void Database::insert(const Statement& statement)
{
    check(sqlite3_step(statement.get()) == SQLITE_DONE);
    sqlite3_reset(statement.get());
}

void Database::check(bool ok) const
{
    require(ok, QStringLiteral("baseline: %1").arg(QLatin1String(sqlite3_errmsg(m_database.get()))));
}

void bindText(const Database::Statement& statement, int index, const QByteArray& text)
{
    sqlite3_bind_text(statement.get(), index, text.constData(), text.size(), SQLITE_STATIC);
}

Poster::Poster(const QByteArray& url, const char* path) : m_curl(curl_easy_init())
{
    curl_easy_setopt(m_curl, CURLOPT_URL, (url + path).constData());
    curl_easy_setopt(m_curl, CURLOPT_POST, 1L);
    curl_easy_setopt(m_curl, CURLOPT_SSL_VERIFYPEER, 0L); // the certificate is that of a test
    curl_easy_setopt(m_curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, keepReply);
}

Poster::~Poster()
{
    curl_easy_cleanup(m_curl);
}

void Poster::post(const QByteArray& body)
{
    QByteArray reply;
    curl_easy_setopt(m_curl, CURLOPT_POSTFIELDS, body.constData());
    curl_easy_setopt(m_curl, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, &reply);
    const CURLcode code = curl_easy_perform(m_curl);
    require(code == CURLE_OK && reply.contains("\"status\":0"),
            QStringLiteral("baseline: %1 %2")
                .arg(QLatin1String(curl_easy_strerror(code)), QString::fromUtf8(reply)));
}

LogBatch readLogBatch(Database& database)
{
    LogBatch batch;
    batch.body = "flight_mission_id=" + MissionId + "&data=[";
    const Database::Statement rows = database.prepare(SelectLog);
    while (sqlite3_step(rows.get()) == SQLITE_ROW) {
        const QByteArray id = column(rows, IdColumn);
        batch.body += batch.ids.isEmpty() ? R"({"created_at":")" : R"(,{"created_at":")";
        batch.body += column(rows, CreatedAtColumn) + R"(","id":")" + id + R"(","message":")" +
                      column(rows, MessageColumn)
                          .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals) +
                      R"("})";
        batch.ids += (batch.ids.isEmpty() ? "'" : ",'") + id + '\'';
    }
    batch.body += ']';
    return batch;
}

void markLogBatch(Database& database, const LogBatch& batch)
{
    database.run("BEGIN IMMEDIATE");
    database.run("UPDATE flight_monitor_detail_log SET is_uploaded=1 WHERE id in (" + batch.ids + ")");
    database.run("COMMIT");
}
