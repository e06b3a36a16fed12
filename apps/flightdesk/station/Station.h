// SPDX-License-Identifier: MIT
#pragma once

#include "project/ProjectLock.h"
#include "station/BacklogWatch.h"
#include "station/FlightWriters.h"
#include "station/Receiver.h"

#include <QtCore/QThread>

/// Records what its links hear: from links to frames, from frames to flights, from flights to mission files.
/// Beside that it counts what waits for upload.
class Station : public QObject
{
    Q_OBJECT

public:
    /// Begins to record. Throws Failure when another station records into the project.
    Station(const Project& project, const StationOptions& options);
    ~Station() override;

    /// Ends the flights in the air, and waits until they are written; no signal comes any more afterwards.
    void finish();

Q_SIGNALS:
    void linkUp(const QString& link);
    void linkLost(const QString& link, const QString& why);
    void linkWaits(const QString& link, const QString& why);
    /// Once a second.
    void looked(const StationState& state);
    /// At most ten times a second, where the options ask for it.
    void sampled(const QVector<VehicleSamples>& vehicles);
    /// What has to be known at once.
    void said(const QString& words);
    void ended(const RecordedFlight& flight);
    void counted(const Backlog& backlog, bool network);

private:
    ProjectLock m_lock;
    std::unique_ptr<FlightWriters> m_writers;
    QThread m_readThread;
    QThread m_countThread;
    Receiver* m_receiver;
    BacklogWatch* m_backlog;
};
