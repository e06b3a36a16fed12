// SPDX-License-Identifier: MIT
#pragma once

#include "project/Project.h"
#include "telemetry/LogFlights.h"

#include <QtCore/QHash>
#include <QtCore/QMutex>

/// Which logs a project has already, by their content. From any thread.
class KnownLogs
{
public:
    /// Throws Failure when the log is not sound, or all its flights are in the project, recorded to their
    /// ends.
    /// \param anyway  take it, as long as a frame is in it
    void check(const Project& project, const MissionFormat& format, const LogFlights& log, bool anyway);

private:
    QStringList missionsOf(const Project& project, const MissionFormat& format, const QString& log);

    QMutex m_mutex;
    QHash<QString, MissionCount> m_whole; ///< by their files; what those tell of the log does not change
};
