// SPDX-License-Identifier: MIT
#include "record/KnownLogs.h"

#include "words/Failure.h"

#include <QtCore/QMutexLocker>

void KnownLogs::check(const Project& project, const MissionFormat& format, const LogFlights& log, bool anyway)
{
    log.check(anyway);
    if (anyway) {
        return;
    }
    const LogOrigin origin = log.origin();
    const QStringList known = missionsOf(project, format, origin.id);
    if (!known.isEmpty() && known.size() >= log.vehicles().size()) {
        throw Failure(Trouble::SameLog, {origin.log, known.join(QStringLiteral(", "))});
    }
}

/// Names of the flights that were recorded from the log, to their ends.
QStringList KnownLogs::missionsOf(const Project& project, const MissionFormat& format, const QString& log)
{
    const QMutexLocker lock(&m_mutex);
    QStringList names;
    for (const QString& path : project.missionFiles({QLatin1Char('*') + format.suffix})) {
        if (!m_whole.contains(path)) {
            MissionFile file(path);
            const QVector<MissionCount> missions = file.missions();
            const bool hasEnd = format.easyFly || !missions.value(0).completedAt.isEmpty();
            if (missions.size() != 1 || missions.constFirst().isIncomplete || !hasEnd) {
                continue;
            }
            m_whole.insert(path, missions.constFirst());
        }
        const MissionCount& mission = m_whole[path];
        if (mission.logId == log && !names.contains(mission.name)) {
            names.append(mission.name);
        }
    }
    return names;
}
