// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDebug>
#include <QtCore/QString>
#include <QtCore/QtGlobal>

#include <functional>

#if defined(KVLOG_LIBRARY)
#define KVLOG_EXPORT Q_DECL_EXPORT
#else
#define KVLOG_EXPORT Q_DECL_IMPORT
#endif

/// \file
/// The host application's log: one process-wide logger, written to through short-lived LogHelper objects.

/// Severity of a log line; lower is more verbose.
enum class Level : int {
    Trace = 0,
    Debug = 1,
    Info = 2, ///< KvProjectDbOperator writes all its lines with this level.
    Warn = 3,
    Error = 4,
};

/// The process-wide logger. All members may be called from any thread.
///
/// From its first use on it takes what the libraries warn of in Qt's categories "kv.host", "kv.network" and
/// "kv.sql", and hands other messages of Qt's to the handler that was there before. A message handler that is
/// installed later gets all of them; one that hands on to the handler before it is installed once, as the two
/// would go round in a circle if it was in the chain already.
///
/// Until setLogFile() has been called, lines of level Warn and above go to standard error and all others
/// are only handed to the listener.
class KVLOG_EXPORT Logger
{
public:
    /// Receives every line that passes the threshold, without time stamp; called on the writing thread, which
    /// may be an operator in the middle of its work: a listener neither runs an event loop nor calls an
    /// operator, but hands the line on (a queued signal).
    using Listener = std::function<void(Level level, const QString& line)>;

    /// The logger; usable from the first call on, until the process ends.
    static Logger& instance();

    /// The current threshold: a line below it is not to be built at all. Level::Warn at the start.
    Level loggingLevel() const;

    /// Sets the threshold.
    void setLoggingLevel(Level level);

    /// Sends all further lines to a rotating file. Warnings and errors that it does not take, as its disk is
    /// full, go to standard error (unless that is turned off); the reason is told there once, in any case.
    ///
    /// \param path      file to append to; its folder is created when missing
    /// \param maxBytes  size at which the file is rotated, at least 1024
    /// \param files     number of rotated files kept beside the current one, at least 1
    /// \return false, with a warning on standard error, when the arguments are out of range or the file
    ///         cannot be opened; the logger then goes on as before
    bool setLogFile(const QString& path, qint64 maxBytes = 5LL * 1024 * 1024, int files = 3);

    /// Sets the listener; an empty one removes it. The listener must not set a listener itself.
    void setListener(Listener listener);

    /// Sends Qt's own messages (qDebug() to qCritical()) into the log as well, instead of to standard
    /// error: debug and information messages with level Debug, warnings with Warn, the others with Error;
    /// its remark at every upload that no content type was set, with Debug. A fatal message still ends the
    /// process.
    void captureQtMessages();

    /// Whether lines of level Warn and above go to standard error while there is no file, or it takes none,
    /// as at the start. A program that shows them itself, through the listener, turns that off.
    void setStandardError(bool on);

    /// Keeps a text out of the log from now on, such as the token of a user who has signed in: lines hold
    /// "***" in its place, also where it stands percent-encoded, whoever writes them. One of fewer than 4
    /// characters is shown: it would be found within many a word.
    void addSecret(const QString& text);

    /// A line as it may be shown: secrets as "***", control characters as \\xNN, so that it stays a line and
    /// harms no terminal, whatever a server or a file has in it.
    QString printable(const QString& line) const;

    /// Hands one finished line to the log, which keeps it as printable() shows it. A line below the threshold
    /// is dropped.
    void write(Level level, const QString& line);

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    Logger();
    ~Logger();
    struct Private;
    Private* const d;
};

/// One log line: stream its items into #stream; the destructor hands the line to the logger.
///
/// Items are separated by one blank and not quoted. Test Logger::loggingLevel() before you make one.
class KVLOG_EXPORT LogHelper
{
public:
    /// Starts a line of the given level.
    explicit LogHelper(Level level);
    /// Finishes the line.
    ~LogHelper();

    LogHelper(const LogHelper&) = delete;
    LogHelper& operator=(const LogHelper&) = delete;

private:
    const Level m_eLevel;
    QString m_strLine;

public:
    QDebug stream; ///< takes the items of the line
};
