// SPDX-License-Identifier: MIT
#pragma once

#include "TestProject.h"

#include <functional>

struct sqlite3;
struct sqlite3_stmt;

/// What the calling thread has waited for locks, in microseconds: what SQLite asked its file system to sleep,
/// once countSleeps() has run. It is counted and not measured, so that a busy machine changes nothing.
extern thread_local qint64 t_slept;
/// Run once, after the first 4 ms of a wait.
extern thread_local std::function<void()> t_whileWaiting;

void countSleeps();

/// How long a function waits for locks, in milliseconds.
int waited(const std::function<void()>& function);

/// Another user of a mission file, for as long as the object lives: "exclusive", "reserved", "reader",
/// "idle WAL"; or one who has "replaced" it, "replaced in WAL mode" it and its log, "moved away" or "deleted"
/// it and puts it back.
class Foreign
{
public:
    Foreign(const QString& kind, const QString& file);
    ~Foreign();
    Q_DISABLE_COPY(Foreign)

private:
    void hold(const char* sql);

    const QString m_kind;
    const QString m_file;
    sqlite3* m_database = nullptr;
    sqlite3_stmt* m_reading = nullptr;
};

/// The operator's lock is free, or the alarm ends this program.
void takeLock(Recorder& recorder);
