// SPDX-License-Identifier: MIT
#include "BreakpointKeeper.h"

void BreakpointKeeper::readLine(const QString& line)
{
    const QLatin1String begins("CKvFlightDataDbOperator::_postFlightMission ");
    const QLatin1String accepted("CKvFlightDataDbOperator::slotUploadMissionFinished ");
    const QLatin1String failed("CKvFlightDataDbOperator::slotFlightMissionUpLoadfailed ");
    if (line.startsWith(begins)) {
        m_inFlight = line.section(QStringLiteral("id = "), 1);
        m_sent.insert(m_inFlight);
    } else if (line.startsWith(failed)) {
        m_waiting.remove(m_inFlight); // the row still waits, and goes with the breakpoint
        m_inFlight.clear();
    } else if (line.startsWith(accepted)) {
        if (m_waiting.contains(m_inFlight)) {
            emit storeAgain(m_waiting.take(m_inFlight));
        }
        m_inFlight.clear();
    }
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
        emit storeAgain(flight); // the row may have been accepted between the breakpoint and now
    }
}
