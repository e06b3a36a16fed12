// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"
#include "station/StationState.h"
#include "telemetry/FlightTrack.h"
#include "window/TableModel.h"
#include "window/Theme.h"

#include <QtCore/QQueue>

/// The flights that have been recorded since the window opened, those being recorded, and the vehicles that
/// are heard now. A vehicle stays in its row from flight to flight; each flight that it has ended gets one of
/// its own.
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

    /// The number in the place of a flight's, below 0, by which a vehicle on a station's link is known.
    static int numberOf(int link, int system) { return -1 - (link << 8 | system); }
    void noteVehicles(const StationState& state);
    void addVehicleSamples(const VehicleSamples& vehicle);
    /// A vehicle's flight has ended, or what another station left open has got its end.
    void noteEnded(const RecordedFlight& flight);
    void removeVehicles();
    /// Forgets all of them; none is being recorded.
    void clear();

    int flightAt(int row) const { return m_rows.value(row).flight; }
    bool isRunning(int row) const { return flightAt(row) > 0 && !m_rows[row].result; }
    const FlightTrack& track(int row) const { return m_rows[row].track; }
    std::optional<Breakpoint> breakpoint(int row) const;

    QVariant data(const QModelIndex& index, int role) const override;

private:
    int rows() const override { return m_rows.size(); }
    struct Vehicle {
        VehicleState state;
        QQueue<VehicleState> before; ///< of the last seconds, to see how many frames came in these
        QString mission;             ///< the latest
    };
    struct Row {
        int flight = 0;
        QString name;
        bool started = false;
        int percent = 0;
        FlightTrack track;
        std::optional<RecordedFlight> result;
        std::optional<Vehicle> vehicle;

        bool isSilent() const { return vehicle && percent == 0 && vehicle->before.size() > 1; }
    };
    Row* row(int flight);
    void noteVehicle(const VehicleState& state, const QString& name);
    void noteChanged(const Row* row);
    static int percentHeard(const Vehicle& vehicle);
    static QString stateText(const Row& row);
    static std::optional<theme::Accent> accent(const Row& row);
    static QString stateText(const VehicleState& vehicle);

    QVector<Row> m_rows;
};
