// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

// What the mission files hold: the mission, and rows as a flight leaves them behind.
extern const QByteArray MissionId;
constexpr int MessageBytes = 200;

// A folder for files whose commits reach a disk, and one where only the work shows.
QString diskFolder();
QString memoryFolder();

// Makes a mission file with all tables and the mission's row, which is uploaded.
void makeMissionFile(const QString& file);
// With the library's ids, or with random ones, as flights had them once.
void addLog(const QString& file, int rows, int messageBytes = MessageBytes, bool randomIds = false);
// Millions of short ones: quickly made.
void addUploadedLog(const QString& file, int rows);
void addPositions(const QString& file, int rows);
// A position and a status each second, as flightdesk writes them.
void addFlight(const QString& file, int seconds);
void copyFile(const QString& from, const QString& to);

qint64 countRows(const QString& file, const char* table);
// Bytes of the pages that the log and its indexes take, and of the log's messages.
qint64 bytesOfLog(const QString& file);
qint64 bytesOfMessages(const QString& file);
// Complains unless every row of the log and of the positions is marked as uploaded.
void requireDrained(const QString& file);
