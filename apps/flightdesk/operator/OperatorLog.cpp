// SPDX-License-Identifier: MIT
#include "operator/OperatorLog.h"

#include <KvAlgorthm.h>
#include <KvProjectDbOperator/CKvUpLoadObject.h>

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

#include <utility>

namespace
{
constexpr int LongestMessage = 200;

QString server()
{
    return QUrl::fromEncoded(GetServerIP()).toString(QUrl::RemoveUserInfo | QUrl::RemoveQuery);
}
} // namespace

RequestFailure RequestFailure::of(Trouble trouble, const QStringList& details)
{
    return {trouble, troubleHeadline(trouble, details), troubleWords(trouble, details),
            trouble == Trouble::TokenRejected};
}

RequestFailure RequestFailure::ofStatus(int status, const QString& said)
{
    constexpr int TooLarge = 413;
    constexpr int FirstOfServer = 500;
    constexpr int BehindServer = 600;
    const QString number = QString::number(status);
    if (status == 401 || status == 403) {
        return of(Trouble::TokenRejected, {number, said.isEmpty() ? server() : said});
    }
    const QString where = said.isEmpty() ? server() : QStringLiteral("%1, \"%2\"").arg(server(), said);
    if (status == TooLarge) {
        return of(Trouble::TooLarge, {where, number});
    }
    if (status >= FirstOfServer && status < BehindServer) {
        return of(Trouble::ServerError, {where, number});
    }
    return of(Trouble::RowsRefused, {number, said.isEmpty() ? server() : said});
}

RequestFailure RequestFailure::ofReply(const QString& reply)
{
    constexpr int TooLarge = 413;
    constexpr int FirstElsewhere = 300;
    constexpr int FirstOfServer = 500;
    static const QRegularExpression form(QStringLiteral("^(\\d+) (\\d+) (.*)$"));
    const QRegularExpressionMatch match = form.match(reply);
    const int status = match.captured(1).toInt();
    const QString words = match.captured(3).left(LongestMessage);
    if (status == TooLarge || status >= FirstOfServer) {
        return ofStatus(status, {});
    }
    if (status >= FirstElsewhere) {
        return of(Trouble::WrongAddress, {server(), QString::number(status)});
    }
    switch (match.captured(2).toInt()) {
    case QNetworkReply::HostNotFoundError:
        return of(Trouble::UnknownHost, {QUrl::fromEncoded(GetServerIP()).host()});
    case QNetworkReply::SslHandshakeFailedError:
        return of(Trouble::Certificate, {server(), words});
    case QNetworkReply::RemoteHostClosedError:
        return of(Trouble::CutLine, {server()});
    case QNetworkReply::NoError:
        return of(status == 0 ? Trouble::NoConnection : Trouble::NoServer, {server()});
    default:
        return of(status == 0 ? Trouble::NoConnection : Trouble::CutLine, {server()});
    }
}

OperatorLog::OperatorLog(const LogFeed& feed, QObject* parent) : QObject(parent)
{
    Logger& logger = Logger::instance();
    logger.setLoggingLevel(qMin(logger.loggingLevel(), Level::Info));
    connect(&feed, &LogFeed::line, this, &OperatorLog::read);
    connect(&feed, &LogFeed::reply, this, [this](const QString& text) { m_reply = text; });
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
             const QString seconds = QString::number(CKvUpLoadObject::RequestTimeout / 1000);
             Q_EMIT log.requestFailed(RequestFailure::of(Trouble::NoAnswer, {server(), seconds}));
         }},
        {QLatin1String("CKvUpLoadObject::slotErrorTimeout"),
         [](Log& log, Text) {
             Q_EMIT log.requestFailed(RequestFailure::ofReply(std::exchange(log.m_reply, {})));
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
    Q_EMIT requestFailed(
        RequestFailure::ofStatus(match.captured(1).toInt(), match.captured(2).left(LongestMessage)));
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
