// SPDX-License-Identifier: MIT
#pragma once

#include "MissionRecord.h"

#include <QtCore/QAbstractTableModel>
#include <QtCore/QHash>
#include <QtCore/QSortFilterProxyModel>

/// What waits in the whole project.
struct ProjectTotals {
    qint64 waiting = 0;
    qint64 marked = 0;
    QString file; ///< some file with rows that can be sent, always the same one until they are; empty: none
    QString mission;
};

/// The project's missions, a row each.
class MissionModel : public QAbstractTableModel
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
    enum Role {
        SortRole = Qt::UserRole,
        AllRole,    ///< rows of a kind; 0 when the mission has no such kind
        MarkedRole, ///< of these, accepted by the server and marked
        WaitedRole, ///< whether rows of the mission have waited since the model was made
    };

    using QAbstractTableModel::QAbstractTableModel;

    void update(const QVector<MissionsOfFile>& files);
    void remove(const QStringList& files);
    void clear();

    /// \param easyFly  the video missions' instead of the flight missions'
    ProjectTotals totals(bool easyFly) const;
    /// Name of a mission, or its id.
    QString nameOf(const QString& mission) const;
    QString fileOf(const QString& mission) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    /// For how long, in one unit.
    static QString ageText(qint64 seconds);
    static QString durationText(qint64 seconds);

private:
    struct Row {
        MissionRecord mission;
        bool waited = false;
    };
    void removeRowsOf(const QString& file, int keep);
    const MissionRecord* find(const QString& mission) const;
    QVariant text(const MissionRecord& mission, int column) const;
    QVariant longText(const MissionRecord& mission, int column) const;
    QVariant sortValue(const MissionRecord& mission, int column) const;

    QVector<Row> m_rows;
    QHash<QString, QVector<int>> m_rowsOfFile;
};

/// Sorted as the user likes; on request only missions that have waited, whose kinds are shown as bars.
class MissionProxy : public QSortFilterProxyModel
{
    Q_OBJECT

public:
    MissionProxy(MissionModel* model, bool onlyWaited, QObject* parent);

    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;

private:
    const bool m_onlyWaited;
};
