// SPDX-License-Identifier: MIT
#pragma once

#include "export/FlightFigures.h"
#include "project/MissionRecord.h"
#include "upload/Backlog.h"
#include "window/TableModel.h"
#include "window/Theme.h"

#include <QtCore/QElapsedTimer>
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
        Distance,
        State,    ///< in a pilot's words
        Uploaded, ///< of all rows, as a bar
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
    /// Which mission's rows are on their way; empty when none are.
    void setUploading(const QString& mission);
    void setFigures(const QString& file, const QString& mission, const FlightFigures& figures);
    /// Flights whose figures are not known, or not as they are now; each is told once. Those that are still
    /// being recorded are left for later.
    QVector<MissionRecord> takeUnfigured();
    const MissionRecord& record(int row) const { return m_rows.at(row).mission; }
    /// Null until they are known.
    const FlightFigures* figures(int row) const;
    /// Invalid for a flight that does not tell.
    QDateTime start(int row) const { return m_rows.at(row).start(); }
    QString stateText(int row) const { return stateText(m_rows.at(row)); }
    /// For a state that is not to be overlooked: the flight broke off, or cannot be read or sent.
    std::optional<theme::Accent> accent(int row) const { return m_rows.at(row).accent(); }
    /// Records of a file that the server has accepted.
    qint64 acceptedOf(const QString& file) const;
    /// Name of a mission, or its id.
    QString nameOf(const QString& mission) const;

    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    /// For how long, in one unit.
    static QString ageText(qint64 seconds);
    static QString durationText(qint64 seconds);
    static QString distanceText(double metres);

private:
    int rows() const override { return m_rows.size(); }
    struct Row {
        MissionRecord mission;
        bool waited = false;
        QElapsedTimer grew; ///< since rows were added
        QString figured;    ///< version when figures were asked for
        std::optional<FlightFigures> figures;

        bool isGrowing() const;
        std::optional<theme::Accent> accent() const;
        QDateTime start() const;
    };
    QVector<MissionRecord> asLastRead(const MissionsOfFile& file) const;
    void removeRowsOf(const QString& file, int keep);
    void setRow(Row* row, const MissionRecord& mission);
    QString stateText(const Row& row) const;
    QString waitingText(const MissionRecord& mission) const;
    QVariant text(const Row& row, int column) const;
    QVariant longText(const Row& row, int column) const;
    QVariant sortValue(const Row& row, int column) const;

    QVector<Row> m_rows;
    QHash<QString, QVector<int>> m_rowsOfFile;
    QString m_uploading;
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
