// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLog.h"
#include "record/FlightRecorder.h"

#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QSet>

/// Sees to it that the server gets every breakpoint. One that is stored while its mission row is on its way
/// is marked with that row and never sent, so it is stored once more when the row has been accepted.
class BreakpointKeeper : public QObject
{
    Q_OBJECT

public:
    explicit BreakpointKeeper(const LogFeed& log);

    void noteRecorded(const RecordedFlight& flight);

Q_SIGNALS:
    void storeAgain(const RecordedFlight& flight);

private:
    void noteBegan(OperatorLog::Rows rows, const QString& mission);
    void noteAccepted();
    void noteFailed();

    const OperatorLog m_log;
    QSet<QString> m_sent; ///< missions whose row has been on its way at some time
    QString m_inFlight;
    QMap<QString, RecordedFlight> m_waiting;
};
