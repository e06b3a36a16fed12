// SPDX-License-Identifier: MIT
#include "export/FormatWriter.h"
#include "export/XmlText.h"
#include "words/Latin1.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QXmlStreamWriter>

namespace
{
class GpxWriter : public FormatWriter
{
public:
    explicit GpxWriter(QIODevice& device) : m_xml(&device)
    {
        m_xml.setAutoFormatting(true);
        m_xml.setAutoFormattingIndent(1);
        m_xml.writeStartDocument();
        m_xml.writeStartElement("gpx"_l1);
        m_xml.writeAttribute("xmlns"_l1, "http://www.topografix.com/GPX/1/1"_l1);
        m_xml.writeAttribute("xmlns:gpxtpx"_l1, "http://www.garmin.com/xmlschemas/TrackPointExtension/v2"_l1);
        m_xml.writeAttribute("version"_l1, "1.1"_l1);
        m_xml.writeAttribute("creator"_l1, QCoreApplication::applicationName());
    }

    qint64 add(Flight& flight) override
    {
        m_xml.writeStartElement("trk"_l1);
        m_xml.writeTextElement("name"_l1, xmlText(flight.name()));
        const QString incomplete = flight.mission().incompleteWords();
        m_xml.writeTextElement("desc"_l1, xmlText(incomplete.isEmpty()
                                                      ? flight.mission().aircraft
                                                      : flight.mission().aircraft + ", "_l1 + incomplete));
        m_xml.writeStartElement("trkseg"_l1);
        qint64 written = 0;
        flight.positions([&](const FlightPoint& point) {
            if (point.hasPlace()) {
                writePoint(point);
                ++written;
            }
        });
        m_xml.writeEndElement();
        m_xml.writeEndElement();
        return written;
    }

    void finish() override { m_xml.writeEndDocument(); }

private:
    void writePoint(const FlightPoint& point)
    {
        m_xml.writeStartElement("trkpt"_l1);
        m_xml.writeAttribute("lat"_l1, QString::number(point.lat, 'f', 7));
        m_xml.writeAttribute("lon"_l1, QString::number(point.lng, 'f', 7));
        writeNumber("ele"_l1, point.alt);
        m_xml.writeTextElement("time"_l1, flightTime::text(point.msec));
        if (!std::isnan(point.speed) || !std::isnan(point.heading)) {
            m_xml.writeStartElement("extensions"_l1);
            m_xml.writeStartElement("gpxtpx:TrackPointExtension"_l1);
            writeNumber("gpxtpx:speed"_l1, point.speed);
            writeNumber("gpxtpx:course"_l1, point.heading);
            m_xml.writeEndElement();
            m_xml.writeEndElement();
        }
        m_xml.writeEndElement();
    }

    void writeNumber(const QString& element, double number)
    {
        if (!std::isnan(number)) {
            m_xml.writeTextElement(element, QString::number(number, 'f', 3));
        }
    }

    QXmlStreamWriter m_xml;
};
} // namespace

std::unique_ptr<FormatWriter> makeGpxWriter(QIODevice& device)
{
    return std::make_unique<GpxWriter>(device);
}
