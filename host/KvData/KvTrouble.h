// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// What a file refuses.
enum class ETrouble { Opening, Writing, Reading };

/// Tells the log what keeps a mission file from being used, at level Error, or Warn where it cannot be read
/// for now: once, and again only when the words change, or when the file has been well in between and twenty
/// minutes have passed, with the number of times until then. Connections come and go, so the process
/// remembers. Where the same goes for many files of a project, see AmongFiles().
void ReportTrouble(ETrouble eTrouble, const QString& strFile, const QString& strText);

/// The file opens, takes rows, or is read: the end is told where the trouble was.
void ClearTrouble(ETrouble eTrouble, const QString& strFile);

bool IsInTrouble(ETrouble eTrouble, const QString& strFile);
