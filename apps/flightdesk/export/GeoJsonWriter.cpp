// SPDX-License-Identifier: MIT
#include "export/FormatWriter.h"
#include "words/Latin1.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <optional>

namespace
{
constexpr double HalfTurn = 180;

QByteArray compact(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray coordinates(const FlightPoint& point)
{
    QJsonArray array{point.lng, point.lat};
    if (!std::isnan(point.alt)) {
        array.append(point.alt);
    }
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

QByteArray timeText(const FlightPoint& point)
{
    return '"' + flightTime::text(point.msec).toLatin1() + '"';
}

bool crossesAntimeridian(const FlightPoint& from, const FlightPoint& to)
{
    return std::abs(to.lng - from.lng) > HalfTurn;
}

/// Where the way from one point to another meets the antimeridian, as seen from the first one's side.
FlightPoint crossing(const FlightPoint& from, const FlightPoint& to)
{
    const double side = std::copysign(HalfTurn, from.lng);
    const double whole = to.lng + 2 * side - from.lng;
    const double part = whole == 0 ? 0 : (side - from.lng) / whole;
    FlightPoint point = from;
    point.lng = side;
    point.lat += part * (to.lat - from.lat);
    point.alt += part * (to.alt - from.alt);
    point.msec += std::llround(part * double(to.msec - from.msec));
    return point;
}

/// What has to be known of a track before its first point is written.
struct Survey {
    qint64 points = 0;
    bool cut = false;
    qint64 last = flightTime::Unknown;
};

QByteArray type(const Survey& survey)
{
    if (survey.cut) {
        return R"("MultiLineString")";
    }
    return survey.points > 1 ? R"("LineString")" : R"("Point")";
}

/// A collection with a feature for each flight. Lines end at the antimeridian and go on beyond it.
class GeoJsonWriter : public FormatWriter
{
public:
    explicit GeoJsonWriter(QIODevice& device) : m_device(device)
    {
        m_device.write(R"({"type":"FeatureCollection","features":[)");
    }

    qint64 add(Flight& flight) override
    {
        const Survey survey = look(flight);
        m_device.write(m_began ? ",\n" : "\n");
        m_began = true;
        QByteArray properties = compact(facts(flight, survey));
        properties.chop(1); // times follow
        m_device.write(R"({"type":"Feature","properties":)" + properties);
        if (survey.points > 0) {
            m_device.write(R"(,"coordTimes":)");
            writeLine(flight, survey, timeText);
        }
        m_device.write(R"(},"geometry":)");
        if (survey.points > 0) {
            m_device.write(R"({"type":)" + type(survey) + R"(,"coordinates":)");
            writeLine(flight, survey, coordinates);
            m_device.write("}");
        } else {
            m_device.write("null");
        }
        m_device.write("}");
        return survey.points;
    }

    void finish() override { m_device.write("\n]}\n"); }

private:
    static Survey look(Flight& flight)
    {
        Survey survey;
        std::optional<FlightPoint> before;
        flight.positions([&](const FlightPoint& point) {
            if (point.hasPlace()) {
                survey.cut = survey.cut || (before && crossesAntimeridian(*before, point));
                ++survey.points;
                survey.last = point.msec;
                before = point;
            }
        });
        return survey;
    }

    static QJsonObject facts(Flight& flight, const Survey& survey)
    {
        const MissionCount& mission = flight.mission();
        QJsonObject facts{
            {"name"_l1, flight.name()}, {"aircraft"_l1, mission.aircraft}, {"mission"_l1, mission.id}};
        if (const qint64 start = flight.start(); start != flightTime::Unknown) {
            facts.insert("start"_l1, flightTime::text(start));
        }
        if (survey.points > 0) {
            facts.insert("end"_l1, flightTime::text(survey.last));
        }
        if (mission.isIncomplete) {
            facts.insert("incomplete"_l1, mission.incompleteWords());
        }
        if (mission.breakpoint) {
            facts.insert("breakpoint"_l1, mission.breakpoint->json());
        }
        return facts;
    }

    /// A value for each point; that of a single one stands alone.
    void writeLine(Flight& flight, const Survey& survey, QByteArray (*value)(const FlightPoint&))
    {
        const int depth = survey.cut ? 2 : survey.points > 1 ? 1 : 0;
        m_device.write(QByteArray(depth, '['));
        std::optional<FlightPoint> before;
        flight.positions([&](const FlightPoint& point) {
            if (!point.hasPlace()) {
                return;
            }
            if (before && crossesAntimeridian(*before, point)) {
                FlightPoint edge = crossing(*before, point);
                m_device.write(',' + value(edge) + "],[");
                edge.lng = -edge.lng;
                m_device.write(value(edge));
            }
            m_device.write((before ? "," : "") + value(point));
            before = point;
        });
        m_device.write(QByteArray(depth, ']'));
    }

    QIODevice& m_device;
    bool m_began = false;
};
} // namespace

std::unique_ptr<FormatWriter> makeGeoJsonWriter(QIODevice& device)
{
    return std::make_unique<GeoJsonWriter>(device);
}
