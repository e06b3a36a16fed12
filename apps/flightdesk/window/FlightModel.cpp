// SPDX-License-Identifier: MIT
#include "window/FlightModel.h"

#include <QtCore/QLocale>

#include <algorithm>

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
    return std::find_if(m_rows.begin(), m_rows.end(), [flight](const Row& r) { return r.flight == flight; });
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

void FlightModel::finish(int flight, const RecordedFlight& result)
{
    row(flight)->name = result.name; // which of a log's flights it is was not known before
    row(flight)->result = result;
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
                                                   : tr("%1 %").arg(row.percent);
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
    case BarTextRole:
        return text;
    case PercentRole:
        return row.percent;
    default:
        return {};
    }
}

QString FlightModel::stateText(const Row& row)
{
    if (!row.result) {
        return row.started ? tr("recording") : tr("waits for its turn");
    }
    if (!row.result->error.isEmpty()) {
        return row.result->error;
    }
    QString messages = tr("%1 messages").arg(QLocale().toString(row.result->messages));
    if (!row.result->interruption) {
        return messages;
    }
    const auto& breakpoint = row.result->interruption->breakpoint;
    return tr("%1, %2, %3")
        .arg(messages, row.result->interruption->reason,
             breakpoint ? tr("breakpoint at %1").arg(breakpoint->text()) : tr("position unknown"));
}
