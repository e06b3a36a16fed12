// SPDX-License-Identifier: MIT
#pragma once

#include "operator/LogFeed.h"

/// Why a request failed.
struct RequestFailure {
    bool tokenRejected = false;
    QString words;
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
    void fail(const QString& words) { Q_EMIT requestFailed({false, words}); }
};
