// SPDX-License-Identifier: MIT
#include "export/FormatWriter.h"
#include "export/XmlText.h"
#include "words/Latin1.h"

#include <QtCore/QXmlStreamWriter>

#include <optional>

namespace
{
/// Longitude, latitude and, where it is known, height.
QString coordinates(const FlightPoint& point, QChar separator)
{
    QString text = QString::number(point.lng, 'f', 7) + separator + QString::number(point.lat, 'f', 7);
    if (!std::isnan(point.alt)) {
        text += separator + QString::number(point.alt, 'f', 3);
    }
    return text;
}

class KmlWriter : public FormatWriter
{
public:
    explicit KmlWriter(QIODevice& device) : m_xml(&device)
    {
        m_xml.setAutoFormatting(true);
        m_xml.setAutoFormattingIndent(1);
        m_xml.writeStartDocument();
        m_xml.writeStartElement("kml"_l1);
        m_xml.writeAttribute("xmlns"_l1, "http://www.opengis.net/kml/2.2"_l1);
        m_xml.writeAttribute("xmlns:gx"_l1, "http://www.google.com/kml/ext/2.2"_l1);
        m_xml.writeStartElement("Document"_l1);
        m_xml.writeTextElement("name"_l1, "Flights"_l1);
        // Colours that stand out from fields and woods; opacity, blue, green, red.
        writeStyle("flight"_l1, "ff00ffff"_l1);
        writeStyle("start"_l1, "ff00ff00"_l1);
        writeStyle("end"_l1, "ff0000ff"_l1);
        writeStyle("breakpoint"_l1, "ff00a5ff"_l1);
    }

    qint64 add(Flight& flight) override
    {
        m_xml.writeStartElement("Folder"_l1);
        m_xml.writeTextElement("name"_l1, xmlText(flight.name()));
        m_first = m_last = FlightPoint();
        const qint64 written = writeTrack(flight);
        if (written > 0) {
            writePlace("start"_l1, m_first);
            writePlace("end"_l1, m_last);
        }
        if (const auto& breakpoint = flight.mission().breakpoint) {
            FlightPoint place;
            place.lng = breakpoint->lng;
            place.lat = breakpoint->lat;
            writePlace("breakpoint"_l1, place);
        }
        m_xml.writeEndElement();
        return written;
    }

    void finish() override { m_xml.writeEndDocument(); }

private:
    void writeStyle(const QString& id, const QString& color)
    {
        m_xml.writeStartElement("Style"_l1);
        m_xml.writeAttribute("id"_l1, id);
        m_xml.writeStartElement("IconStyle"_l1);
        m_xml.writeTextElement("color"_l1, color);
        m_xml.writeEndElement();
        m_xml.writeStartElement("LineStyle"_l1);
        m_xml.writeTextElement("color"_l1, color);
        m_xml.writeTextElement("width"_l1, "4"_l1);
        m_xml.writeEndElement();
        m_xml.writeEndElement();
    }

    void beginPlacemark(const QString& style, const QString& name)
    {
        m_xml.writeStartElement("Placemark"_l1);
        m_xml.writeTextElement("name"_l1, name);
        m_xml.writeTextElement("styleUrl"_l1, QLatin1Char('#') + style);
    }

    void writeFact(const QString& name, const QString& value)
    {
        m_xml.writeStartElement("Data"_l1);
        m_xml.writeAttribute("name"_l1, name);
        m_xml.writeTextElement("value"_l1, xmlText(value));
        m_xml.writeEndElement();
    }

    void writeHeightMode(const FlightPoint& point)
    {
        // A height above sea level is neither one above the ground nor above the start.
        m_xml.writeTextElement("altitudeMode"_l1, std::isnan(point.alt) ? "clampToGround"_l1 : "absolute"_l1);
    }

    qint64 writeTrack(Flight& flight)
    {
        beginPlacemark("flight"_l1, xmlText(flight.name()));
        m_xml.writeStartElement("ExtendedData"_l1);
        writeFact("aircraft"_l1, flight.mission().aircraft);
        writeFact("mission"_l1, flight.mission().id);
        if (flight.mission().isIncomplete) {
            writeFact("recorded"_l1, flight.mission().incompleteWords());
        }
        m_xml.writeEndElement();
        const qint64 written = writeTimes(flight);
        if (written > 0) {
            writeCoordinates(flight);
            m_xml.writeEndElement();
        }
        m_xml.writeEndElement();
        return written;
    }

    /// All times of a track stand before its places. Nothing is begun for a flight without a place.
    qint64 writeTimes(Flight& flight)
    {
        qint64 written = 0;
        flight.positions([&](const FlightPoint& point) {
            if (!point.hasPlace()) {
                return;
            }
            if (written++ == 0) {
                m_first = point;
                m_xml.writeStartElement("gx:Track"_l1);
                writeHeightMode(point);
            }
            m_last = point;
            m_xml.writeTextElement("when"_l1, flightTime::text(point.msec));
        });
        return written;
    }

    void writeCoordinates(Flight& flight)
    {
        // A place without a height takes the one before: at 0 m the track would dive to the sea.
        double alt = UnknownNumber;
        flight.positions([&](FlightPoint point) {
            if (point.hasPlace()) {
                point.alt = alt = std::isnan(point.alt) ? alt : point.alt;
                m_xml.writeTextElement("gx:coord"_l1, coordinates(point, QLatin1Char(' ')));
            }
        });
    }

    void writePlace(const QString& kind, const FlightPoint& point)
    {
        beginPlacemark(kind, kind);
        if (point.msec != flightTime::Unknown) {
            m_xml.writeStartElement("TimeStamp"_l1);
            m_xml.writeTextElement("when"_l1, flightTime::text(point.msec));
            m_xml.writeEndElement();
        }
        m_xml.writeStartElement("Point"_l1);
        writeHeightMode(point);
        m_xml.writeTextElement("coordinates"_l1, coordinates(point, QLatin1Char(',')));
        m_xml.writeEndElement();
        m_xml.writeEndElement();
    }

    QXmlStreamWriter m_xml;
    FlightPoint m_first;
    FlightPoint m_last;
};
} // namespace

std::unique_ptr<FormatWriter> makeKmlWriter(QIODevice& device)
{
    return std::make_unique<KmlWriter>(device);
}
