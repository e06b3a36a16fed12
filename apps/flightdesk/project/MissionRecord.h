// SPDX-License-Identifier: MIT
#pragma once

#include "project/MissionFile.h"

#include <QtCore/QDateTime>
#include <QtCore/QMetaType>
#include <QtCore/QString>
#include <QtCore/QVector>

#include <optional>

/// One mission as its file shows it.
struct MissionRecord : MissionCount {
    QString file;
    QDateTime start;
    QDateTime oldestWaiting; ///< when the row was recorded that waits longest; invalid when none waits
    bool readable = true;
    Obstacle obstacle = Obstacle::None;

    KindCount kind(const QString& table) const;
    KindCount all() const;
    /// Differs when anything has changed that figures and events are made of.
    QString version() const;
};

/// All missions of one file; one record that is not readable when the file is not.
struct MissionsOfFile {
    QString file;
    QVector<MissionRecord> missions;

    bool isReadable() const { return missions.isEmpty() || missions.first().readable; }
    static MissionsOfFile read(const QString& path);
};

Q_DECLARE_METATYPE(QVector<MissionsOfFile>)
