// SPDX-License-Identifier: MIT
#include "export/Csv.h"
#include "export/FormatWriter.h"

namespace
{
QString text(double number, int decimals)
{
    return std::isnan(number) ? QString() : QString::number(number, 'f', decimals);
}

/// A line for each position, also where no place is known: the rest of it may be.
class CsvWriter : public FormatWriter
{
public:
    explicit CsvWriter(QIODevice& device) : m_device(device)
    {
        m_device.write(
            "mission,name,aircraft,time,latitude_deg,longitude_deg,altitude_m,above_start_m,speed_m_s,"
            "heading_deg,mode,armed,battery_V,battery_percent,satellites,fix_type,roll_deg,pitch_deg,"
            "yaw_deg\n");
    }

    qint64 add(Flight& flight) override
    {
        const QStringList begin{flight.mission().id, flight.mission().name, flight.mission().aircraft};
        qint64 written = 0;
        flight.positionsWithStatus([&](const FlightPoint& point, const FlightStatus& status) {
            QStringList values = begin;
            values << flightTime::text(point.msec) << text(point.lat, 7) << text(point.lng, 7)
                   << text(point.alt, 3) << text(point.relativeAlt, 3) << text(point.speed, 3)
                   << text(point.heading, 2);
            for (const QVariant& value : status.values) {
                values << value.toString();
            }
            m_device.write(csvLine(values));
            ++written;
        });
        return written;
    }

private:
    QIODevice& m_device;
};
} // namespace

std::unique_ptr<FormatWriter> makeCsvWriter(QIODevice& device)
{
    return std::make_unique<CsvWriter>(device);
}
