// SPDX-License-Identifier: MIT
#pragma once

#include "project/FileStamp.h"
#include "project/MissionRecord.h"
#include "project/Project.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <optional>

/// Looks through a project's mission files about once a second and tells what has changed. It is meant for a
/// thread of its own: a long log takes a while to count, and a file may be locked.
class MissionWatch : public QObject
{
    Q_OBJECT

public:
    explicit MissionWatch(Project project);

    void look();

Q_SIGNALS:
    void found(const QVector<MissionsOfFile>& files);
    void gone(const QStringList& files);
    /// Everything has been seen once more.
    void looked(bool network);

private:
    void noteDisk();

    const Project m_project;
    QHash<QString, FileStamp> m_stamps;
    std::optional<Trouble> m_diskTrouble; ///< of the last look
};
