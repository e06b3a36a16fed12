// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

/// \file
/// What goes for many files of a project is few lines in the log, and so is its end.

/// The monotonic clock, in milliseconds.
qint64 Now();

constexpr qint64 Forgotten = 1200000; // milliseconds without a fault after which it is news

/// Whether one more line is left within the hour; it counts as written then.
bool TakeLine(QList<qint64>& listLine, int nMost, qint64 nNow);

bool IsPowerOfTen(quint64 nTimes);

/// Says how long something took, as in ", after 12 min".
QString After(qint64 nMilliseconds);

/// Whether a line of a kind is written about a file, and what it says beside: the files of a project share
/// nine lines of a kind within an hour. Three files are named; the fourth, tenth, hundredth, ... stands for
/// the others, and so does the last, where the line is of an end.
std::optional<QString> AmongFiles(const QString& strFile, const QString& strKind, bool bLast = false);

/// Something of a kind goes for a file, or does still.
void JoinCrowd(const QString& strFile, const QString& strKind);

/// It does not any more. \return whether the file was the last one of its project
bool LeaveCrowd(const QString& strFile, const QString& strKind);
