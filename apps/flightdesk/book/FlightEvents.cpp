// SPDX-License-Identifier: MIT
#include "book/FlightEvents.h"

#include "export/FlightFigures.h"
#include "telemetry/FrameSource.h"
#include "telemetry/MavlinkCodec.h"
#include "telemetry/MavlinkMessages.h"

#include <KvAlgorthm.h>

#include <QtCore/QCoreApplication>

#include <algorithm>

namespace
{
constexpr int MostEvents = 2000;
constexpr quint8 LeastWarning = 4; // severities below are worse

QString words(const char* text)
{
    return QCoreApplication::translate("FlightEvent", text);
}

/// Modes, arming and gaps, as status records tell them.
class Changes
{
public:
    explicit Changes(QVector<FlightEvent>& events) : m_events(events) {}

    void take(const FlightStatus& status)
    {
        noteSilence(status.msec, words(m_armed ? "Link lost for %1 s" : "Nothing was heard for %1 s"));
        const QString mode = status.values.at(FlightStatus::Mode).toString();
        if (mode != m_mode && !mode.isEmpty()) {
            m_events.append({status.msec, words("Mode %1").arg(mode)});
            m_mode = mode;
        }
        if (status.isArmed() != m_armed) {
            m_armed = status.isArmed();
            m_events.append({status.msec, m_armed ? words("Armed") : words("Disarmed")});
        }
        m_msec = status.msec;
    }

    /// \param msec  when the recording ended; nothing may have been heard for a while before
    void end(qint64 msec)
    {
        noteSilence(msec, words(m_armed ? "Link lost: nothing was heard for %1 s, until the recording ended"
                                        : "Nothing was heard for %1 s, until the recording ended"));
    }

private:
    void noteSilence(qint64 until, const QString& text)
    {
        const bool known = m_msec != flightTime::Unknown && until != flightTime::Unknown;
        if (known && until - m_msec > FlightFigures::LinkTimeout) {
            m_events.append({m_msec, text.arg((until - m_msec) / 1000), true});
        }
    }

    QVector<FlightEvent>& m_events;
    qint64 m_msec = flightTime::Unknown;
    QString m_mode;
    bool m_armed = false;
};

/// What a message of the telemetry says in words; nothing where it says none.
std::optional<FlightEvent> textIn(const QByteArray& message, const QString& createdAt)
{
    const bool stamped =
        mavlink::frameLength(message.leftJustified(mavlink::PrefixLength).constData()) != message.size();
    const TelemetryFrame frame = stamped ? TelemetryFrame::ofLogRecord(message) : TelemetryFrame{0, message};
    const auto decoded = mavlink::decode(frame.bytes);
    if (!decoded || decoded->id != mavlink::StatusText::Id) {
        return std::nullopt;
    }
    const auto text = mavlink::read<mavlink::StatusText>(decoded->payload);
    return FlightEvent{stamped ? frame.usec / 1000 : flightTime::read(createdAt), text.words(),
                       text.severity <= LeastWarning};
}
} // namespace

QVector<FlightEvent> FlightEvent::of(Flight& flight, const std::function<void()>& step)
{
    QVector<FlightEvent> events;
    Changes changes(events);
    flight.statuses([&](const FlightStatus& status) {
        step();
        if (events.size() < MostEvents) {
            changes.take(status);
        }
    });
    changes.end(flight.end());
    const int most = events.size() + MostEvents;
    RowWalk rows = flight.walk(FlightLogTableName, {QStringLiteral("message"), QStringLiteral("created_at")});
    while (const QVector<QVariant>* const row = rows.next()) {
        step();
        auto text = textIn(row->constFirst().toByteArray(), row->at(1).toString());
        if (text && events.size() < most) {
            text->msec = flight.corrected(text->msec);
            events.append(*text);
        }
    }
    std::stable_sort(events.begin(), events.end(),
                     [](const FlightEvent& a, const FlightEvent& b) { return a.msec < b.msec; });
    return events;
}
