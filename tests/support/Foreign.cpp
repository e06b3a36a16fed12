// SPDX-License-Identifier: MIT
#include "Foreign.h"

#include <sqlite3.h>

#include <map>
#include <utility>

#include <unistd.h>

thread_local qint64 t_slept;
thread_local std::function<void()> t_whileWaiting;

namespace
{
int countedSleep(sqlite3_vfs*, int microseconds)
{
    t_slept += microseconds;
    if (t_slept > 4000 && t_whileWaiting) {
        std::exchange(t_whileWaiting, nullptr)();
    }
    return usleep(static_cast<useconds_t>(microseconds));
}
} // namespace

void countSleeps()
{
    static sqlite3_vfs counting = *sqlite3_vfs_find(nullptr);
    counting.pNext = nullptr;
    counting.zName = "counting";
    counting.xSleep = countedSleep;
    sqlite3_vfs_register(&counting, 1);
}

int waited(const std::function<void()>& function)
{
    t_slept = 0;
    function();
    return static_cast<int>(t_slept / 1000);
}

Foreign::Foreign(const QString& kind, const QString& file) : m_kind(kind), m_file(file)
{
    static const std::map<QString, const char*> statements = {
        {"exclusive", "BEGIN EXCLUSIVE"},
        {"reserved", "BEGIN IMMEDIATE"},
        {"reader", "SELECT id FROM flight_mission"},
        {"idle WAL", "PRAGMA journal_mode=WAL; SELECT count(*) FROM flight_mission"}};
    const auto statement = statements.find(kind);
    if (statement != statements.end()) {
        hold(statement->second);
    } else if (kind != "none") {
        QFile::copy(file,
                    file + ".copy"); // before anything is held: a close of the file frees this process' locks
        if (kind == "replaced, held") {
            hold("BEGIN EXCLUSIVE");
        }
        QFile::rename(file, file + ".away");
    }
    if (kind.startsWith("replaced")) {
        QFile::rename(file + ".copy", file);
    }
}

Foreign::~Foreign()
{
    sqlite3_finalize(m_reading);
    sqlite3_close(m_database); // what has begun is rolled back
    if (m_kind == "moved away" || m_kind == "deleted") {
        QFile::remove(m_file);
        QFile::rename(m_file + (m_kind == "deleted" ? ".copy" : ".away"), m_file);
    }
}

void Foreign::hold(const char* sql)
{
    sqlite3_open(m_file.toUtf8(), &m_database);
    sqlite3_busy_timeout(m_database, 10000);
    while (*sql != '\0') {
        sqlite3_finalize(m_reading);
        sqlite3_prepare_v2(m_database, sql, -1, &m_reading, &sql);
        sqlite3_step(m_reading);
    }
    if (m_kind != "reader") { // which stands on its row
        sqlite3_reset(m_reading);
    }
}

void takeLock(Recorder& recorder)
{
    alarm(20);
    recorder.op.slotParseJson({}, {}, {}, 0, {});
    alarm(0);
}
