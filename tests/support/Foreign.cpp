// SPDX-License-Identifier: MIT
#include "Foreign.h"

#include <QtCore/QProcess>

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
        {"exclusive"_l1, "BEGIN EXCLUSIVE"},
        {"reserved"_l1, "BEGIN IMMEDIATE"},
        {"reader"_l1, "SELECT id FROM flight_mission"},
        {"idle WAL"_l1, "PRAGMA journal_mode=WAL; SELECT count(*) FROM flight_mission"}};
    const auto statement = statements.find(kind);
    if (statement != statements.end()) {
        hold(statement->second);
    } else if (kind == "replaced in WAL mode"_l1) {
        hold(statements.at("idle WAL"_l1));
        // By another process: see below
        QProcess::execute("sh"_l1, {"-c"_l1,
                                    "for f in '' -wal; do cp $0$f $0.copy$f && mv $0$f $0.away$f; done; rm "
                                    "$0-shm; for f in '' -wal; do mv $0.copy$f $0$f; done"_l1,
                                    file});
        return;
    } else if (kind != "none"_l1) {
        // Before anything is held: a close of the file frees this process' locks
        QFile::copy(file, file + ".copy"_l1);
        if (kind == "replaced, held"_l1) {
            hold("BEGIN EXCLUSIVE");
        }
        QFile::rename(file, file + ".away"_l1);
    }
    if (kind.startsWith("replaced"_l1)) {
        QFile::rename(file + ".copy"_l1, file);
    }
}

Foreign::~Foreign()
{
    sqlite3_finalize(m_reading);
    sqlite3_close(m_database); // what has begun is rolled back
    if (m_kind == "moved away"_l1 || m_kind == "deleted"_l1) {
        QFile::remove(m_file);
        QFile::rename(m_file + (m_kind == "deleted"_l1 ? ".copy"_l1 : ".away"_l1), m_file);
    }
}

void Foreign::hold(const char* sql)
{
    sqlite3_open(m_file.toUtf8().constData(), &m_database);
    sqlite3_busy_timeout(m_database, 10000);
    while (*sql != '\0') {
        sqlite3_finalize(m_reading);
        sqlite3_prepare_v2(m_database, sql, -1, &m_reading, &sql);
        sqlite3_step(m_reading);
    }
    if (m_kind != "reader"_l1) { // which stands on its row
        sqlite3_reset(m_reading);
    }
}

void takeLock(Recorder& recorder)
{
    alarm(20);
    recorder.op.slotParseJson({}, {}, {}, 0, {});
    alarm(0);
}
