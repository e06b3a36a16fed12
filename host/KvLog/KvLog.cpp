// SPDX-License-Identifier: MIT
#include "KvLog.h"
#include "KvLog/KvSecret.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QVector>

#include <spdlog/logger.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

namespace
{
spdlog::level::level_enum SpdlogLevel(Level level)
{
    static_assert(static_cast<int>(Level::Error) == spdlog::level::err, "the levels must match spdlog's");
    return static_cast<spdlog::level::level_enum>(level);
}

QString WithoutControlCharacters(const QString& line)
{
    QString clean;
    clean.reserve(line.size());
    for (const QChar c : line) {
        if (c.category() == QChar::Other_Control) {
            clean += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        } else {
            clean += c;
        }
    }
    return clean;
}

/// Qt remarks at every post without a content type that it takes the one of forms, which is what is meant.
bool IsPostRemark(const QString& text)
{
    return text.startsWith(QLatin1String("content-type missing in HTTP POST, defaulting to"));
}

Level LevelOf(QtMsgType type, const QString& text)
{
    switch (type) {
    case QtWarningMsg:
        return IsPostRemark(text) ? Level::Debug : Level::Warn;
    case QtCriticalMsg:
    case QtFatalMsg:
        return Level::Error;
    default:
        return Level::Debug;
    }
}

std::atomic<QtMessageHandler> g_pOtherHandler{nullptr}; // of those messages that are not the libraries'

void LogQtMessage(QtMsgType type, const QMessageLogContext&, const QString& text)
{
    Logger::instance().write(LevelOf(type, text), text);
    if (type == QtFatalMsg) {
        std::abort();
    }
}

/// What the libraries warn of goes to the log, whoever keeps the rest of Qt's messages.
void SortQtMessage(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    const QtMessageHandler pOther = g_pOtherHandler;
    if (QLatin1String(context.category).startsWith(QLatin1String("kv.")) || !pOther) {
        LogQtMessage(type, context, text);
    } else {
        pOther(type, context, text);
    }
}
thread_local bool t_bFailed = false; // the last line of this thread has not reached the file

std::shared_ptr<spdlog::logger> StandardError()
{
    auto sink = std::make_shared<spdlog::logger>("stderr", std::make_shared<spdlog::sinks::stderr_sink_mt>());
    sink->set_level(spdlog::level::trace);
    return sink;
}
} // namespace

struct Q_DECL_HIDDEN Logger::Private {
    void Put(spdlog::logger& to, Level level, const QString& line);
    void TellFailure(const std::string& error);

    std::atomic<Level> threshold{Level::Warn};
    std::atomic<bool> bStandardError{true};
    std::atomic<bool> bToldFailure{false};
    QMutex mutex; // guards what follows; nothing that may write a line is done under it
    std::shared_ptr<spdlog::logger> sink;
    bool bToFile = false;
    std::shared_ptr<const Listener> listener;
    QVector<CKvSecret> secrets;
};

/// A warning that the file does not take goes to standard error.
void Logger::Private::Put(spdlog::logger& to, Level level, const QString& line)
{
    t_bFailed = false;
    to.log(SpdlogLevel(level), line.toStdString());
    if (t_bFailed && bStandardError && level >= Level::Warn) {
        StandardError()->log(SpdlogLevel(level), line.toStdString());
    }
}

void Logger::Private::TellFailure(const std::string& error)
{
    t_bFailed = true;
    if (!bToldFailure.exchange(true)) {
        StandardError()->warn("The log file takes no lines, warnings are shown here: {}", error);
    }
}

Logger::Logger() : d(new Private)
{
    d->sink = StandardError();
}

Logger::~Logger()
{
    delete d;
}

Logger& Logger::instance()
{
    // Never destroyed: static objects of the host may still write while the process ends.
    static Logger* const pLogger = [] {
        auto* const pNew = new Logger;
        g_pOtherHandler = qInstallMessageHandler(SortQtMessage);
        return pNew;
    }();
    return *pLogger;
}

Level Logger::loggingLevel() const
{
    return d->threshold;
}

void Logger::setLoggingLevel(Level level)
{
    d->threshold = level;
}

bool Logger::setLogFile(const QString& path, qint64 maxBytes, int files)
{
    if (path.isEmpty() || maxBytes < 1024 || files < 1) {
        write(Level::Warn, QStringLiteral("Log file refused: a path, 1024 bytes and one rotated file are the "
                                          "least, not \"%1\", %2, %3")
                               .arg(path)
                               .arg(maxBytes)
                               .arg(files));
        return false;
    }
    try {
        auto file = std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            QFile::encodeName(QFileInfo(path).absoluteFilePath()).toStdString(),
            static_cast<std::size_t>(maxBytes), static_cast<std::size_t>(files));
        auto sink = std::make_shared<spdlog::logger>("file", std::move(file));
        sink->set_level(spdlog::level::trace);
        sink->flush_on(spdlog::level::info);
        sink->set_error_handler([this](const std::string& error) { d->TellFailure(error); });
        const QMutexLocker lock(&d->mutex);
        d->sink = std::move(sink);
        d->bToFile = true;
        d->bToldFailure = false;
    } catch (const spdlog::spdlog_ex& error) {
        write(Level::Warn,
              QStringLiteral("Log file \"%1\" refused: %2").arg(path, QString::fromLocal8Bit(error.what())));
        return false;
    }
    return true;
}

void Logger::setListener(Listener listener)
{
    std::shared_ptr<const Listener> other;
    if (listener) {
        other = std::make_shared<const Listener>(std::move(listener));
    }
    const QMutexLocker lock(&d->mutex);
    std::swap(d->listener, other); // the old one ends without the lock: it may write a line then
}

void Logger::captureQtMessages()
{
    qInstallMessageHandler(LogQtMessage);
}

void Logger::setStandardError(bool on)
{
    d->bStandardError = on;
}

void Logger::addSecret(const QString& text)
{
    const QMutexLocker lock(&d->mutex);
    const auto isText = [&text](const CKvSecret& secret) { return secret.Text() == text; };
    if (std::none_of(d->secrets.cbegin(), d->secrets.cend(), isText)) {
        // The longest first: another may be its beginning.
        const auto shorter =
            std::find_if(d->secrets.begin(), d->secrets.end(),
                         [&text](const CKvSecret& secret) { return secret.Text().size() < text.size(); });
        d->secrets.insert(shorter, CKvSecret(text));
    }
}

QString Logger::printable(const QString& line) const
{
    QVector<CKvSecret> secrets;
    {
        const QMutexLocker lock(&d->mutex);
        secrets = d->secrets;
    }
    QString clean = WithoutControlCharacters(line);
    for (const CKvSecret& secret : qAsConst(secrets)) {
        secret.Hide(clean); // a server may send back what it was sent
    }
    return clean;
}

void Logger::write(Level level, const QString& line)
{
    if (level < loggingLevel()) {
        return;
    }
    const QString clean = printable(line);
    std::shared_ptr<spdlog::logger> sink;
    std::shared_ptr<const Listener> listener;
    {
        const QMutexLocker lock(&d->mutex);
        listener = d->listener;
        if (d->bToFile || (level >= Level::Warn && d->bStandardError)) {
            sink = d->sink;
        }
    }
    // Both are called without the lock: a listener may write a line itself.
    if (sink) {
        d->Put(*sink, level, clean);
    }
    if (listener) {
        (*listener)(level, clean);
    }
}

LogHelper::LogHelper(Level level) : m_eLevel(level), stream(&m_strLine)
{
    stream.noquote();
}

LogHelper::~LogHelper()
{
    if (m_strLine.endsWith(QLatin1Char(' '))) {
        m_strLine.chop(1); // QDebug ends every item with one
    }
    Logger::instance().write(m_eLevel, m_strLine);
}
