// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"
#include "telemetry/FlightTrack.h"
#include "window/TableModel.h"

/// The flights that have been recorded since the window opened, and those being recorded.
class FlightModel : public TableModel
{
    Q_OBJECT

public:
    enum Column { Name, Progress, State, ColumnCount };

    explicit FlightModel(QObject* parent = nullptr);

    void add(int flight, const QString& name);
    void noteStarted(int flight);
    void setProgress(int flight, qint64 done, qint64 size);
    void addSamples(int flight, const QVector<FlightSample>& samples);
    void finish(int flight, const RecordedFlight& result);

    int flightAt(int row) const { return m_rows.value(row).flight; }
    bool isRunning(int row) const { return !m_rows.value(row).result; }
    const FlightTrack& track(int row) const { return m_rows[row].track; }
    std::optional<Breakpoint> breakpoint(int row) const;

    QVariant data(const QModelIndex& index, int role) const override;

private:
    int rows() const override { return m_rows.size(); }
    struct Row {
        int flight = 0;
        QString name;
        bool started = false;
        int percent = 0;
        FlightTrack track;
        std::optional<RecordedFlight> result;
    };
    Row* row(int flight);
    void noteChanged(const Row* row);
    static QString stateText(const Row& row);

    QVector<Row> m_rows;
};
