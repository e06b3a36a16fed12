// SPDX-License-Identifier: MIT
#include "window/MissionModel.h"

#include <KvAlgorthm.h>

#include <QtCore/QLocale>

#include <algorithm>
#include <limits>

namespace
{
bool isVideo(const QString& file)
{
    return file.endsWith(MissionFormat::video().suffix);
}

bool isKind(int column)
{
    return column >= MissionModel::MissionRow && column <= MissionModel::Messages;
}

bool hasBar(int column)
{
    return isKind(column) || column == MissionModel::Uploaded;
}

/// Of all kinds where the column is about no kind.
KindCount countOf(const MissionRecord& mission, int column)
{
    switch (column) {
    case MissionModel::MissionRow:
        return mission.kind(isVideo(mission.file) ? FlightVideoTableName : FlightMissionTableName);
    case MissionModel::Positions:
        return mission.kind(PosDataTableName);
    case MissionModel::Statuses:
        return mission.kind(UasStatusTableName);
    case MissionModel::Messages:
        return mission.kind(FlightLogTableName);
    default:
        return mission.all();
    }
}

int alignment(int column)
{
    const bool number = (column >= MissionModel::Duration && column <= MissionModel::Oldest) ||
                        column == MissionModel::Distance;
    return int(Qt::AlignVCenter) | int(number ? Qt::AlignRight : Qt::AlignLeft);
}

/// Folder and file: the project's path is the same for all.
QString shortPath(const QString& file)
{
    return file.section(QLatin1Char('/'), -2);
}
} // namespace

MissionModel::MissionModel(QObject* parent)
    : TableModel({tr("File"), tr("Flight"), tr("Aircraft"), tr("Start (UTC)"), tr("Duration"),
                  tr("Mission row"), tr("Positions"), tr("Status"), tr("Log"), tr("Waiting"), tr("Oldest"),
                  tr("Breakpoint"), tr("Distance"), tr("State"), tr("Uploaded")},
                 parent)
{
}

void MissionModel::update(const QVector<MissionsOfFile>& files)
{
    for (const MissionsOfFile& file : files) {
        const QVector<MissionRecord> missions = asLastRead(file);
        removeRowsOf(file.file, missions.size());
        QVector<int>& rows = m_rowsOfFile[file.file];
        for (int i = 0; i < missions.size(); ++i) {
            if (i < rows.size()) {
                setRow(&m_rows[rows[i]], missions[i]);
                Q_EMIT dataChanged(index(rows[i], 0), index(rows[i], ColumnCount - 1));
            } else {
                beginInsertRows({}, m_rows.size(), m_rows.size());
                rows.append(m_rows.size());
                m_rows.append(Row());
                setRow(&m_rows.last(), missions[i]);
                endInsertRows();
            }
        }
    }
}

void MissionModel::setRow(Row* row, const MissionRecord& mission)
{
    const bool isOther = row->mission.id != mission.id;
    if (isOther) {
        *row = {};
    } else if (mission.all().recorded > row->mission.all().recorded) {
        row->grew.start();
    }
    row->waited = row->waited || mission.all().waiting > 0;
    row->mission = mission;
}

bool MissionModel::Row::isGrowing() const
{
    constexpr int Lasting = 5000; // milliseconds
    return mission.completedAt.isEmpty() && grew.isValid() && !grew.hasExpired(Lasting);
}

std::optional<theme::Accent> MissionModel::Row::accent() const
{
    const bool isStuck = mission.obstacle != Obstacle::None && mission.all().waiting > 0;
    if (!mission.readable || isStuck || (figures && figures->isLinkLost)) {
        return theme::Accent::Trouble;
    }
    const bool lacks = (mission.isIncomplete && !isGrowing()) || mission.truncatedBytes > 0;
    return lacks ? std::optional(theme::Accent::Warning) : std::nullopt;
}

/// A mission that does not tell began with its first position.
QDateTime MissionModel::Row::start() const
{
    const bool told = mission.start.isValid() || !figures || figures->start == flightTime::Unknown;
    return told ? mission.start : QDateTime::fromMSecsSinceEpoch(figures->start, Qt::UTC);
}

qint64 MissionModel::acceptedOf(const QString& file) const
{
    qint64 accepted = 0;
    const QVector<int> rows = m_rowsOfFile.value(file);
    for (const int row : rows) {
        accepted += m_rows.at(row).mission.all().marked;
    }
    return accepted;
}

void MissionModel::setUploading(const QString& mission)
{
    if (mission != m_uploading) {
        m_uploading = mission;
        Q_EMIT dataChanged(index(0, State), index(m_rows.size() - 1, State));
    }
}

void MissionModel::setFigures(const QString& file, const QString& mission, const FlightFigures& figures)
{
    const QVector<int> rows = m_rowsOfFile.value(file);
    for (const int row : rows) {
        if (m_rows.at(row).mission.id == mission) {
            m_rows[row].figures = figures;
            Q_EMIT dataChanged(index(row, 0), index(row, ColumnCount - 1));
        }
    }
}

QVector<MissionRecord> MissionModel::takeUnfigured()
{
    QVector<MissionRecord> unfigured;
    for (Row& row : m_rows) {
        const QString version = row.mission.version();
        if (row.mission.readable && row.figured != version && !row.isGrowing()) {
            row.figured = version;
            unfigured.append(row.mission);
        }
    }
    return unfigured;
}

const FlightFigures* MissionModel::figures(int row) const
{
    return m_rows.at(row).figures ? &*m_rows.at(row).figures : nullptr;
}

/// The missions of a file as they are, or as they were when it could be read.
QVector<MissionRecord> MissionModel::asLastRead(const MissionsOfFile& file) const
{
    const QVector<int> rows = m_rowsOfFile.value(file.file);
    if (rows.isEmpty() || file.isReadable()) {
        return file.missions;
    }
    QVector<MissionRecord> missions;
    for (const int row : rows) {
        missions.append(m_rows[row].mission);
        missions.last().readable = m_rows[row].isGrowing(); // then its recorder has it for a moment
    }
    return missions;
}

void MissionModel::remove(const QStringList& files)
{
    for (const QString& file : files) {
        removeRowsOf(file, 0);
        m_rowsOfFile.remove(file);
    }
}

/// Removes what a file has beyond its first rows.
void MissionModel::removeRowsOf(const QString& file, int keep)
{
    while (m_rowsOfFile.value(file).size() > keep) {
        const int gone = m_rowsOfFile[file].takeLast();
        beginRemoveRows({}, gone, gone);
        m_rows.remove(gone);
        for (QVector<int>& rows : m_rowsOfFile) {
            for (int& row : rows) {
                row -= row > gone ? 1 : 0;
            }
        }
        endRemoveRows();
    }
}

void MissionModel::clear()
{
    beginResetModel();
    m_rows.clear();
    m_rowsOfFile.clear();
    endResetModel();
}

Backlog MissionModel::backlog(bool easyFly) const
{
    Backlog backlog;
    for (const Row& row : m_rows) {
        const MissionRecord& mission = row.mission;
        if (isVideo(mission.file) != easyFly) {
            continue;
        }
        const KindCount all = mission.all();
        backlog.settled += all.marked;
        if (!mission.readable && !backlog.unreadable.contains(mission.file)) {
            backlog.unreadable.append(mission.file);
        }
        if (all.waiting > 0) {
            backlog.rows.append({mission.file, mission.id, {}, all.waiting, mission.obstacle});
        }
    }
    return backlog;
}

QString MissionModel::nameOf(const QString& mission) const
{
    const auto row = std::find_if(m_rows.begin(), m_rows.end(),
                                  [&mission](const Row& r) { return r.mission.id == mission; });
    return row == m_rows.end() || row->mission.name.isEmpty() ? mission : row->mission.name;
}

QVariant MissionModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return role == Qt::TextAlignmentRole ? alignment(section)
                                         : TableModel::headerData(section, orientation, role);
}

QVariant MissionModel::data(const QModelIndex& index, int role) const
{
    const Row& row = m_rows[index.row()];
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
        return text(row, column);
    case Qt::ToolTipRole:
        return longText(row, column);
    case Qt::TextAlignmentRole:
        return alignment(column);
    case SortRole:
        return sortValue(row, column);
    case PercentRole: {
        const KindCount rows = countOf(row.mission, column);
        return hasBar(column) && rows.recorded > 0 ? int(100 * rows.marked / rows.recorded) : -1;
    }
    case BarTextRole: {
        const KindCount rows = countOf(row.mission, column);
        return QStringLiteral("%1 / %2").arg(QLocale().toString(rows.marked),
                                             QLocale().toString(rows.recorded));
    }
    case WaitedRole:
        return row.waited;
    case Qt::ForegroundRole:
        return theme::foreground(column == State ? row.accent() : std::nullopt);
    default:
        return {};
    }
}

QString MissionModel::waitingText(const MissionRecord& mission) const
{
    const KindCount all = mission.all();
    if (all.waiting == 0) {
        return tr("uploaded");
    }
    if (mission.id == m_uploading && all.recorded > 0) {
        return tr("uploading %1 %").arg(100 * all.marked / all.recorded);
    }
    QString waits = tr("%1 records wait").arg(QLocale().toString(all.waiting));
    switch (mission.obstacle) {
    case Obstacle::NoMissionRow:
        return tr("%1 for the record of the flight itself").arg(waits);
    case Obstacle::NotMarkable:
        return tr("%1: the file is read-only").arg(waits);
    case Obstacle::DiskFull:
        return tr("%1: the disk is full").arg(waits);
    case Obstacle::None:
        break;
    }
    return waits;
}

QString MissionModel::stateText(const Row& row) const
{
    const MissionRecord& mission = row.mission;
    if (!mission.readable) {
        return tr("cannot be read: locked, or no flight");
    }
    QStringList parts;
    if (row.isGrowing()) {
        parts.append(tr("recording"));
    } else if (mission.isIncomplete) {
        parts.append(mission.incompleteWords());
    } else if (mission.completedAt.isEmpty() && !isVideo(mission.file)) {
        parts.append(tr("not ended"));
    } else if (!mission.completedAt.isEmpty() && mission.result != QLatin1String("completed")) {
        parts.append(row.figures          ? row.figures->end
                     : mission.breakpoint ? tr("interrupted at waypoint %1").arg(mission.breakpoint->waypoint)
                                          : tr("interrupted"));
    }
    if (mission.truncatedBytes > 0) {
        parts.append(mission.cutWords());
    }
    if (parts.isEmpty() || !row.isGrowing() || mission.id == m_uploading) {
        parts.append(waitingText(mission));
    }
    return parts.join(tr(", "));
}

QVariant MissionModel::text(const Row& row, int column) const
{
    const MissionRecord& mission = row.mission;
    switch (column) {
    case File:
        return shortPath(mission.file);
    case Mission:
        return mission.readable ? (mission.name.isEmpty() ? mission.id : mission.name)
                                : tr("locked, or no mission file");
    case Aircraft:
        return mission.aircraft;
    case Start:
        return row.start().toString(QStringLiteral("yyyy-MM-dd hh:mm"));
    case Duration:
        return mission.seconds ? durationText(*mission.seconds) : QString();
    case Oldest:
        return mission.oldestWaiting.isValid()
                   ? ageText(mission.oldestWaiting.secsTo(QDateTime::currentDateTime()))
                   : QString();
    case Distance:
        return row.figures && row.figures->place.hasPlace() ? distanceText(row.figures->distance) : QString();
    case State:
        return stateText(row);
    case BreakpointAt:
        return mission.breakpoint ? tr("waypoint %1").arg(mission.breakpoint->waypoint) : QString();
    default: {
        const KindCount count = countOf(mission, column);
        return QLocale().toString(column == Waiting ? count.waiting : count.recorded);
    }
    }
}

QVariant MissionModel::longText(const Row& row, int column) const
{
    const MissionRecord& mission = row.mission;
    return column == File                                 ? mission.file
           : column == BreakpointAt && mission.breakpoint ? mission.breakpoint->text()
                                                          : text(row, column);
}

QVariant MissionModel::sortValue(const Row& row, int column) const
{
    const MissionRecord& mission = row.mission;
    switch (column) {
    case Start:
        return row.start();
    case Duration:
        return mission.seconds.value_or(-1);
    case Distance:
        return row.figures ? row.figures->distance : -1;
    case Waiting:
        return mission.all().waiting;
    case Oldest: // what has waited longest counts most
        return mission.oldestWaiting.isValid() ? -mission.oldestWaiting.toMSecsSinceEpoch()
                                               : std::numeric_limits<qint64>::min();
    default:
        return isKind(column) ? QVariant(countOf(mission, column).recorded) : text(row, column);
    }
}

QString MissionModel::ageText(qint64 seconds)
{
    if (seconds < 60) {
        return tr("%1 s").arg(qMax(qint64(0), seconds));
    }
    if (seconds < 3600) {
        return tr("%1 min").arg(seconds / 60);
    }
    const qint64 hours = seconds / 3600;
    return hours < 48 ? tr("%1 h").arg(hours) : tr("%1 days").arg(hours / 24);
}

QString MissionModel::durationText(qint64 seconds)
{
    seconds = qMax(qint64(0), seconds); // the aircraft's clock may be set back
    return QStringLiteral("%1:%2:%3")
        .arg(seconds / 3600)
        .arg(seconds / 60 % 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString MissionModel::distanceText(double metres)
{
    return metres < 1000 ? tr("%1 m").arg(metres, 0, 'f', 0) : tr("%1 km").arg(metres / 1000, 0, 'f', 1);
}

MissionProxy::MissionProxy(MissionModel* model, bool onlyWaited, QObject* parent)
    : RowFilter(model, -1, parent), m_onlyWaited(onlyWaited)
{
    setSortRole(MissionModel::SortRole);
    if (onlyWaited) {
        setCondition([](const QModelIndex& row) { return row.data(MissionModel::WaitedRole).toBool(); });
    }
}

QVariant MissionProxy::headerData(int section, Qt::Orientation orientation, int role) const
{
    const bool overBars = m_onlyWaited && hasBar(section);
    return overBars && role == Qt::TextAlignmentRole ? int(Qt::AlignCenter)
                                                     : RowFilter::headerData(section, orientation, role);
}
