// SPDX-License-Identifier: MIT
#include "window/FlightModel.h"

#include <QtCore/QLocale>

#include <algorithm>

namespace
{
constexpr int HeardOver = 5;   // seconds
constexpr double PreRoll = 10; // seconds; what a station's flights begin with

QVector<FlightSample> preRollOf(const FlightTrack& track)
{
    QVector<FlightSample> samples = track.samples();
    const auto flight =
        std::find_if(samples.cbegin(), samples.cend(), [&samples](const FlightSample& sample) {
            return sample.seconds > samples.constLast().seconds - PreRoll;
        });
    samples.remove(0, int(flight - samples.cbegin()));
    return samples;
}
} // namespace

FlightModel::FlightModel(QObject* parent) : TableModel({tr("Flight"), tr("Progress"), tr("State")}, parent) {}

void FlightModel::add(int flight, const QString& name)
{
    beginInsertRows({}, m_rows.size(), m_rows.size());
    Row row;
    row.flight = flight;
    row.name = name;
    m_rows.append(row);
    endInsertRows();
}

FlightModel::Row* FlightModel::row(int flight)
{
    const auto found =
        std::find_if(m_rows.begin(), m_rows.end(), [flight](const Row& r) { return r.flight == flight; });
    return found == m_rows.end() ? nullptr : &*found;
}

void FlightModel::noteChanged(const Row* row)
{
    const int at = int(row - m_rows.constData());
    Q_EMIT dataChanged(index(at, 0), index(at, ColumnCount - 1));
}

void FlightModel::noteStarted(int flight)
{
    row(flight)->started = true;
    noteChanged(row(flight));
}

void FlightModel::setProgress(int flight, qint64 done, qint64 size)
{
    const int percent = size > 0 ? int(100 * done / size) : 0;
    if (percent != row(flight)->percent) {
        row(flight)->percent = percent;
        noteChanged(row(flight));
    }
}

void FlightModel::addSamples(int flight, const QVector<FlightSample>& samples)
{
    row(flight)->track.add(samples);
}

void FlightModel::noteVehicles(const StationState& state)
{
    for (const VehicleState& vehicle : state.vehicles) {
        QString name = tr("vehicle %1").arg(vehicle.system);
        if (state.links.size() > 1) {
            name = tr("%1 on %2").arg(name, state.links.value(vehicle.link).text);
        }
        noteVehicle(vehicle, name);
    }
}

void FlightModel::noteVehicle(const VehicleState& state, const QString& name)
{
    const int number = numberOf(state.link, state.system);
    if (!row(number)) {
        add(number, name);
        row(number)->vehicle.emplace();
    }
    Row* const row = this->row(number);
    Vehicle& vehicle = *row->vehicle;
    vehicle.state = state;
    vehicle.before.enqueue(state);
    if (vehicle.before.size() > HeardOver + 1) {
        vehicle.before.dequeue();
    }
    row->percent = percentHeard(vehicle);
    if (!state.mission.isEmpty() && state.mission != vehicle.mission) {
        vehicle.mission = state.mission;
        const QVector<FlightSample> preRoll = preRollOf(row->track);
        row->track = {};
        row->track.add(preRoll);
    }
    noteChanged(row);
}

void FlightModel::addVehicleSamples(const VehicleSamples& vehicle)
{
    Row* const row = this->row(numberOf(vehicle.link, vehicle.system));
    if (row) { // otherwise its row follows within a second
        row->track.add(vehicle.samples);
    }
}

int FlightModel::percentHeard(const Vehicle& vehicle)
{
    const VehicleState& now = vehicle.state;
    const bool isNew =
        vehicle.before.size() <= HeardOver; // all of it counts, also what came before the first state
    const VehicleState then = isNew ? VehicleState() : vehicle.before.head();
    const qint64 came = now.frames - then.frames;
    return came == 0 ? 0 : int(100 * came / (came + now.missed - then.missed));
}

void FlightModel::noteEnded(const RecordedFlight& flight)
{
    if (flight.missionId.isEmpty() && flight.error.isEmpty()) {
        return; // nothing of it was stored
    }
    const auto vehicle = std::find_if(m_rows.cbegin(), m_rows.cend(), [&flight](const Row& row) {
        return row.vehicle && row.vehicle->mission == flight.missionId;
    });
    const FlightTrack track = vehicle == m_rows.cend() ? FlightTrack() : vehicle->track;
    add(0, flight.name);
    Row& row = m_rows.last();
    row.percent = 100;
    row.track = track;
    row.result = flight;
    noteChanged(&row);
}

void FlightModel::removeVehicles()
{
    for (int row = m_rows.size() - 1; row >= 0; --row) {
        if (m_rows[row].vehicle) {
            beginRemoveRows({}, row, row);
            m_rows.remove(row);
            endRemoveRows();
        }
    }
}

void FlightModel::clear()
{
    beginResetModel();
    m_rows.clear();
    endResetModel();
}

void FlightModel::finish(int flight, const RecordedFlight& result)
{
    row(flight)->name = result.name; // which of a log's flights it is was not known before
    row(flight)->result = result;
    if (!result.incomplete.isEmpty()) {
        constexpr int Whole = 1; // the seconds are
        row(flight)->track.cutAt(double(result.seconds) + Whole);
    }
    noteChanged(row(flight));
}

std::optional<Breakpoint> FlightModel::breakpoint(int row) const
{
    const auto& result = m_rows[row].result;
    return result && result->interruption ? result->interruption->breakpoint : std::nullopt;
}

QVariant FlightModel::data(const QModelIndex& index, int role) const
{
    const Row& row = m_rows[index.row()];
    const QString text = index.column() == Name    ? row.name
                         : index.column() == State ? stateText(row)
                         : row.vehicle             ? tr("link %1 %").arg(row.percent)
                                                   : tr("%1 %").arg(row.percent);
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
    case BarTextRole:
        return text;
    case PercentRole:
        return row.percent;
    case Qt::ForegroundRole:
        return theme::foreground(index.column() == State ? accent(row) : std::nullopt);
    default:
        return {};
    }
}

QString FlightModel::stateText(const VehicleState& vehicle)
{
    QString text = tr("%1, %2").arg(vehicle.mode, vehicle.armed ? tr("armed") : tr("disarmed"));
    if (!vehicle.mission.isEmpty()) {
        text = tr("%1, %2 records").arg(text, QLocale().toString(vehicle.records));
    }
    return vehicle.lost == 0 ? text : tr("%1, %2 lost").arg(text, QLocale().toString(vehicle.lost));
}

std::optional<theme::Accent> FlightModel::accent(const Row& row)
{
    if (row.isSilent() || (row.result && !row.result->error.isEmpty())) {
        return theme::Accent::Trouble;
    }
    const bool lacks = row.result && (!row.result->incomplete.isEmpty() || !row.result->remark.isEmpty());
    return lacks ? std::optional(theme::Accent::Warning) : std::nullopt;
}

QString FlightModel::stateText(const Row& row)
{
    if (row.vehicle) {
        const QString text = stateText(row.vehicle->state);
        return row.isSilent() ? tr("link lost, last: %1").arg(text) : text;
    }
    if (!row.result) {
        return row.started ? tr("recording") : tr("waits for its turn");
    }
    if (!row.result->error.isEmpty()) {
        return row.result->error;
    }
    QString messages = tr("%1 messages").arg(QLocale().toString(row.result->messages)) + row.result->remark;
    if (!row.result->incomplete.isEmpty()) {
        return row.result->incomplete;
    }
    if (!row.result->interruption) {
        return messages;
    }
    const auto& breakpoint = row.result->interruption->breakpoint;
    return tr("%1, %2, %3")
        .arg(messages, row.result->interruption->reason,
             breakpoint ? tr("breakpoint at %1").arg(breakpoint->text()) : tr("position unknown"));
}
