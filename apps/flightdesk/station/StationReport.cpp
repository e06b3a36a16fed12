// SPDX-License-Identifier: MIT
#include "station/StationReport.h"

#include "words/Latin1.h"

#include <QtCore/QJsonArray>
#include <QtCore/QStringList>

namespace
{
QString words(const LinkState& link)
{
    if (!link.up && link.frames == 0) {
        return QStringLiteral("%1 down").arg(link.text);
    }
    return QStringLiteral("%1%2 %3 frames, %4 lost, %5 bad")
        .arg(link.text, link.up ? QString() : QStringLiteral(" down"))
        .arg(link.frames)
        .arg(link.lost)
        .arg(link.badChecksums);
}

QString words(const VehicleState& vehicle)
{
    QString text = QStringLiteral("vehicle %1 %2").arg(vehicle.system).arg(vehicle.mode);
    if (vehicle.armed) {
        text += QStringLiteral(" armed");
    }
    if (!vehicle.mission.isEmpty()) {
        text += QStringLiteral(", %1 records").arg(vehicle.records);
    }
    if (vehicle.lost > 0) {
        text += QStringLiteral(", %1 frames lost").arg(vehicle.lost);
    }
    return text;
}

QJsonObject object(const LinkState& link)
{
    return {{"link"_l1, link.text},
            {"up"_l1, link.up},
            {"frames"_l1, link.frames},
            {"bytes"_l1, link.bytes},
            {"lost"_l1, link.lost},
            {"bad_checksums"_l1, link.badChecksums},
            {"noise_bytes"_l1, link.noiseBytes}};
}

QJsonObject object(const VehicleState& vehicle)
{
    return {{"system"_l1, vehicle.system},   {"mode"_l1, vehicle.mode},       {"armed"_l1, vehicle.armed},
            {"mission"_l1, vehicle.mission}, {"records"_l1, vehicle.records}, {"lost"_l1, vehicle.lost}};
}

template<typename State>
QJsonArray array(const QVector<State>& states)
{
    QJsonArray all;
    for (const State& state : states) {
        all.append(object(state));
    }
    return all;
}
} // namespace

QString StationReport::line() const
{
    QStringList parts;
    for (const VehicleState& vehicle : state.vehicles) {
        parts.append(words(vehicle));
    }
    for (const LinkState& link : state.links) {
        parts.append(words(link));
    }
    parts.append(QStringLiteral("%1 rows wait").arg(waiting));
    if (!upload.isEmpty()) {
        parts.append(upload);
    }
    return parts.join(QStringLiteral("; "));
}

QJsonObject StationReport::json() const
{
    return {{"event"_l1, "status"_l1},
            {"links"_l1, array(state.links)},
            {"vehicles"_l1, array(state.vehicles)},
            {"memory_bytes"_l1, state.memoryBytes},
            {"waiting_rows"_l1, waiting},
            {"free_bytes"_l1, freeBytes},
            {"upload"_l1, upload}};
}
