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

/// Tells what is wrong with something, in the form "about: text". The same is told again only if it was over
/// in between, or has not been seen for twenty minutes. Within an hour three such lines about a thing are
/// told; texts that differ only from their first quotation mark on count together.
///
/// Where the same goes for many files of a project, see AmongFiles().
///
/// \param strWhole  what it is a part of, as a URL is of its server: then all texts about that whole count
///                  together, and the same text is told of one part only
void WarnOnce(const QLoggingCategory& category, const QString& strAbout, const QString& strText,
              const QString& strWhole = {});

/// Nothing is wrong with it any more.
void WellAgain(const QString& strAbout);

/// Nothing is wrong with a part of a whole, or with the whole itself, any more: "whole: news, after 12 min",
/// once that was the last that was wrong with it. Such lines count with the warnings; one more than of these
/// is told, so that an hour has four lines about a thing at most.
void TellWellAgain(const QLoggingCategory& category, const QString& strWhole, const QString& strAbout,
                   const QString& strNews);

/// What was told of a mission file in such words, up to their first quotation mark, is over: "file: news,
/// after 12 min".
void TellOver(const QString& strFile, const QString& strText, const QString& strNews);

/// Tells of records of a file that are lost, as an error.
void TellLoss(const QString& strFile, const QString& strKind, const QString& strText);

/// Tells of a statement that SQLite refused, at the first, tenth, hundredth, ... time; after twenty minutes
/// without it, it is the first again. One that found the file locked is not refused, and is told elsewhere,
/// as is a description that makes no statement. With no error the statement has run: that is told where it
/// had been refused for want of a table or a column.
void WarnRefused(const QString& strFile, const QString& strSql, const QSqlError& error);

/// Whether WarnRefused() waits for a statement to run. Where many are run, those that do need not be told of
/// otherwise.
bool AwaitsTaking();
