// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QLoggingCategory>
#include <QtCore/QString>

class QSqlError;

/// \file
/// Warnings for what a host would otherwise not hear of. They go to Qt's message output, in categories that
/// begin with "kv.", from where KvLog takes them into the log; each library that warns is built with this
/// file.

Q_DECLARE_LOGGING_CATEGORY(KvHost)    // "kv.host": what the host has set, or has not
Q_DECLARE_LOGGING_CATEGORY(KvNetwork) // "kv.network": servers and downloads
Q_DECLARE_LOGGING_CATEGORY(KvSql)     // "kv.sql": mission files and table descriptions

/// Tells what is wrong with something, in the form "about: text". The same is told again only if the thing
/// has been well in between, and not within twenty minutes, in which three texts about a thing are told at
/// most: a server that refuses each second request is one that refuses, with whatever words.
void WarnOnce(const QLoggingCategory& category, const QString& strAbout, const QString& strText);

/// Nothing is wrong with it (any more).
void WellAgain(const QString& strAbout);

/// Tells of a statement that SQLite refused, at the first, tenth, hundredth, ... time. One that found the
/// file locked is not refused, and is told elsewhere.
void WarnRefused(const QString& strFile, const QString& strSql, const QSqlError& error);
