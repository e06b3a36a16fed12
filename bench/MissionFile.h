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
void addLog(const QString& file, int rows);
// Millions of short ones, in the order of their ids: quickly made.
void addUploadedLog(const QString& file, int rows);
void addPositions(const QString& file, int rows);
void copyFile(const QString& from, const QString& to);

qint64 countRows(const QString& file, const char* table);
// Complains unless every row of the log and of the positions is marked as uploaded.
void requireDrained(const QString& file);
