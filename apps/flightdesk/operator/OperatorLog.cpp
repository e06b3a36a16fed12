// SPDX-License-Identifier: MIT
#include "operator/OperatorLog.h"

#include <KvProjectDbOperator/CKvUpLoadObject.h>

#include <QtCore/QRegularExpression>

namespace
{
constexpr int LongestMessage = 200;
} // namespace

OperatorLog::OperatorLog(const LogFeed& feed, QObject* parent) : QObject(parent)
{
    Logger& logger = Logger::instance();
    logger.setLoggingLevel(qMin(logger.loggingLevel(), Level::Info));
    connect(&feed, &LogFeed::line, this, &OperatorLog::read);
}

void OperatorLog::read(const QString& line)
{
    using Log = OperatorLog;
    using Text = const QString&;
    static const std::pair<QLatin1String, void (*)(Log&, Text)> lines[] = {
        {QLatin1String("CKvFlightDataDbOperator::_post"), [](Log& log, Text rest) { log.readBegin(rest); }},
        {QLatin1String("CKvFlightDataDbOperator::slotUploadMissionFinished "),
         [](Log& log, Text) { Q_EMIT log.missionAccepted(); }},
        {QLatin1String("CKvFlightDataDbOperator::slotFlightMissionUpLoadfailed "),
         [](Log& log, Text) { Q_EMIT log.missionFailed(); }},
        {QLatin1String("CKvUpLoadObject::slotRequestTimeOut"),
         [](Log& log, Text) {
             log.fail(QStringLiteral("the server gave no answer for %1 s")
                          .arg(CKvUpLoadObject::RequestTimeout / 1000));
         }},
        {QLatin1String("CKvUpLoadObject::slotErrorTimeout"),
         [](Log& log, Text) {
             log.fail(QStringLiteral("no usable answer: the server cannot be reached, or something else "
                                     "answers in its place"));
         }},
        {QLatin1String("CKvUpLoadObject::slotReplyFinished "),
         [](Log& log, Text rest) { log.readRefusal(rest); }},
        {QLatin1String("CKvDownLoadObjectEX::slotRequestData "),
         [](Log& log, Text rest) { log.readDownload(rest); }},
        {QLatin1String("CKvDownLoadObjectEX::slotPreviewProcessFinished"),
         // The log writes the line's end as an escape.
         [](Log& log, Text rest) {
             Q_EMIT log.downloadEnded(QString(rest).remove(QLatin1String("\\x0a")).trimmed());
         }},
    };
    for (const auto& [begin, reader] : lines) {
        if (line.startsWith(begin)) {
            reader(*this, line.mid(begin.size()));
            return;
        }
    }
}

void OperatorLog::readBegin(const QString& rest)
{
    // The mission stands before the list of a thousand ids.
    static const QRegularExpression begin(
        QStringLiteral("^(FlightMission|PosData|UasStatus) .*?\\bid = (\\S+)"));
    const QRegularExpressionMatch match = begin.match(rest.left(LongestMessage));
    if (match.hasMatch()) {
        const QChar kind = match.captured(1).at(0);
        Q_EMIT requestBegan(kind == QLatin1Char('F')   ? Rows::Mission
                            : kind == QLatin1Char('P') ? Rows::Positions
                                                       : Rows::Statuses,
                            match.captured(2));
    }
}

void OperatorLog::readRefusal(const QString& rest)
{
    static const QRegularExpression refusal(QStringLiteral("^(-?\\d+)(?: (.*))?$"));
    const QRegularExpressionMatch match = refusal.match(rest);
    if (!match.hasMatch()) {
        return; // no usable answer, which a failure follows
    }
    const QString status = match.captured(1);
    const bool token = status == QLatin1String("401") || status == QLatin1String("403");
    Q_EMIT requestFailed(
        {token, QStringLiteral("the server %1: %2 %3")
                    .arg(token ? QStringLiteral("rejected the token") : QStringLiteral("refused the rows"),
                         status, match.captured(2).left(LongestMessage))
                    .trimmed()});
}

/// The line of a try, or the one that this has failed already.
void OperatorLog::readDownload(const QString& rest)
{
    if (rest.endsWith(QLatin1String("Failed to open process"))) {
        Q_EMIT downloadNotStarted();
    } else {
        Q_EMIT downloadBegan();
    }
}
