// SPDX-License-Identifier: MIT
#include "record/BreakpointKeeper.h"

BreakpointKeeper::BreakpointKeeper(const LogFeed& log) : m_log(log)
{
    connect(&m_log, &OperatorLog::requestBegan, this, &BreakpointKeeper::noteBegan);
    connect(&m_log, &OperatorLog::missionAccepted, this, &BreakpointKeeper::noteAccepted);
    connect(&m_log, &OperatorLog::missionFailed, this, &BreakpointKeeper::noteFailed);
}

void BreakpointKeeper::noteBegan(OperatorLog::Rows rows, const QString& mission)
{
    if (rows == OperatorLog::Rows::Mission) {
        m_inFlight = mission;
        m_sent.insert(mission);
    }
}

void BreakpointKeeper::noteAccepted()
{
    if (m_waiting.contains(m_inFlight)) {
        Q_EMIT storeAgain(m_waiting.take(m_inFlight));
    }
    m_inFlight.clear();
}

void BreakpointKeeper::noteFailed()
{
    m_waiting.remove(m_inFlight); // the row still waits, and goes with the breakpoint
    m_inFlight.clear();
}

void BreakpointKeeper::noteRecorded(const RecordedFlight& flight)
{
    const bool breakpoint = flight.interruption && flight.interruption->breakpoint;
    if (!breakpoint || !m_sent.contains(flight.missionId)) {
        return;
    }
    if (m_inFlight == flight.missionId) {
        m_waiting.insert(flight.missionId, flight);
    } else {
        Q_EMIT storeAgain(flight); // the row may have been accepted between the breakpoint and now
    }
}
