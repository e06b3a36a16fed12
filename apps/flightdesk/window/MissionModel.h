// SPDX-License-Identifier: MIT
#pragma once

#include "project/MissionRecord.h"
#include "upload/Backlog.h"
#include "window/TableModel.h"

#include <QtCore/QHash>

/// The project's missions, a row each.
class MissionModel : public TableModel
{
    Q_OBJECT

public:
    enum Column {
        File,
        Mission,
        Aircraft,
        Start,
        Duration,
        MissionRow,
        Positions,
        Statuses,
        Messages,
        Waiting,
        Oldest,
        BreakpointAt,
        ColumnCount
    };
    enum OwnRole {
        SortRole = FirstRole,
        WaitedRole, ///< whether rows of the mission have waited since the model was made
    };

    explicit MissionModel(QObject* parent = nullptr);

    /// A file that cannot be read, perhaps as it is locked for a moment, keeps the rows it had.
    void update(const QVector<MissionsOfFile>& files);
    void remove(const QStringList& files);
    void clear();

    /// \param easyFly  the video missions' instead of the flight missions'
    Backlog backlog(bool easyFly) const;
    /// Name of a mission, or its id.
    QString nameOf(const QString& mission) const;

    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    /// For how long, in one unit.
    static QString ageText(qint64 seconds);
    static QString durationText(qint64 seconds);

private:
    int rows() const override { return m_rows.size(); }
    struct Row {
        MissionRecord mission;
        bool waited = false;
    };
    QVector<MissionRecord> asLastRead(const MissionsOfFile& file) const;
    void removeRowsOf(const QString& file, int keep);
    QVariant text(const MissionRecord& mission, int column) const;
    QVariant longText(const MissionRecord& mission, int column) const;
    QVariant sortValue(const MissionRecord& mission, int column) const;

    QVector<Row> m_rows;
    QHash<QString, QVector<int>> m_rowsOfFile;
};

/// Sorted as the user likes; on request only missions that have waited, whose kinds are shown as bars.
class MissionProxy : public RowFilter
{
    Q_OBJECT

public:
    MissionProxy(MissionModel* model, bool onlyWaited, QObject* parent);

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    const bool m_onlyWaited;
};
