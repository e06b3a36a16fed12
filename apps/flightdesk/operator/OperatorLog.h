// SPDX-License-Identifier: MIT
#pragma once

#include "operator/LogFeed.h"
#include "words/Trouble.h"

/// Why a request failed.
struct RequestFailure {
    Trouble trouble = Trouble::NoConnection;
    QString headline; ///< what happened
    QString words;    ///< and what is safe, and what to do
    bool tokenRejected = false;

    static RequestFailure of(Trouble trouble, const QStringList& details);
    /// \param status  of HTTP, or of the server's own answer. \param said  by it
    static RequestFailure ofStatus(int status, const QString& said);
    /// \param reply  as LogFeed has it; empty when nothing is known of it
    static RequestFailure ofReply(const QString& reply);
};

/// What the library tells in its log and nowhere else, as signals on the thread of this object. It has the
/// log let the library's lines through.
class OperatorLog : public QObject
{
    Q_OBJECT

public:
    /// Rows of which a request tells when it begins; for log rows there is a signal of the operator.
    enum class Rows { Mission, Positions, Statuses };

    explicit OperatorLog(const LogFeed& feed, QObject* parent = nullptr);

Q_SIGNALS:
    void requestBegan(OperatorLog::Rows rows, const QString& mission);
    void requestFailed(const RequestFailure& failure);
    /// The mission row that was on its way has been accepted, or its request has failed.
    void missionAccepted();
    void missionFailed();

    void downloadBegan();
    /// The download program could not be started.
    void downloadNotStarted();
    /// \param said  the program's last words
    void downloadEnded(const QString& said);

private:
    void read(const QString& line);
    void readBegin(const QString& rest);
    void readDownload(const QString& rest);
    void readRefusal(const QString& rest);

    QString m_reply; ///< the latest that was of no use, of which a failure follows
};
