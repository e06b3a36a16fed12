// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// What a file refuses.
enum class ETrouble { Opening, Writing };

/// Tells the log what keeps a mission file from being used, at level Error: once, and again only when the
/// words change or the file has been well in between. Connections come and go, so the process remembers.
void ReportTrouble(ETrouble eTrouble, const QString& strFile, const QString& strText);

/// The file opens, or takes rows.
void ClearTrouble(ETrouble eTrouble, const QString& strFile);

bool IsInTrouble(ETrouble eTrouble, const QString& strFile);
