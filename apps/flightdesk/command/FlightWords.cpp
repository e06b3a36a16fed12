// SPDX-License-Identifier: MIT
#include "command/FlightWords.h"

#include "words/Latin1.h"

namespace
{
QString words(const Interruption& interruption)
{
    return QStringLiteral(", interrupted (%1): %2")
        .arg(interruption.reason, interruption.breakpoint
                                      ? interruption.breakpoint->text()
                                      : QStringLiteral("no breakpoint, as no position is known"));
}
} // namespace

QString flightWords(const RecordedFlight& flight)
{
    if (!flight.error.isEmpty()) {
        return QStringLiteral("%1: %2").arg(flight.name, flight.error);
    }
    const QString recorded =
        QStringLiteral("%1: mission %2, %3 frames, %4 positions, %5 status records%6%7")
            .arg(flight.name, flight.missionId, QString::number(flight.messages),
                 QString::number(flight.positions), QString::number(flight.statuses), flight.remark,
                 flight.interruption ? words(*flight.interruption) : QString());
    return flight.incomplete.isEmpty() ? recorded : QStringLiteral("%1\n%2").arg(recorded, flight.incomplete);
}

QJsonObject flightJson(const RecordedFlight& flight)
{
    QJsonObject object{{"name"_l1, flight.name},           {"id"_l1, flight.missionId},
                       {"file"_l1, flight.file},           {"frames"_l1, flight.messages},
                       {"positions"_l1, flight.positions}, {"statuses"_l1, flight.statuses}};
    if (flight.interruption) {
        object.insert("interrupted"_l1, flight.interruption->reason);
        if (flight.interruption->breakpoint) {
            object.insert("breakpoint"_l1, flight.interruption->breakpoint->json());
        }
    }
    if (flight.clockOffset) {
        object.insert("clock_offset"_l1, *flight.clockOffset);
    }
    if (!flight.incomplete.isEmpty()) {
        object.insert("incomplete"_l1, flight.incomplete);
        object.insert("seconds"_l1, flight.seconds);
        object.insert("whole_seconds"_l1, flight.wholeSeconds);
    }
    if (!flight.error.isEmpty()) {
        object.insert("error"_l1, flight.error);
    }
    return object;
}
