// SPDX-License-Identifier: MIT
#pragma once

#include "record/FlightRecorder.h"
#include "station/LiveFlight.h"

#include <QtCore/QObject>
#include <QtCore/QThread>

#include <deque>
#include <functional>
#include <memory>
#include <vector>

/// Writes the flights in the air into mission files, each on a thread with an operator of its own. One more
/// operator than flights is kept ready: making one looks through all files of the project.
class FlightWriters : public QObject
{
    Q_OBJECT

public:
    /// \param left  mission files of flights that another station was killed over; they get their ends
    FlightWriters(Project project, const QStringList& left);
    /// Waits until the flights are written, which must have been closed. What the disk still does not take
    /// then is given up.
    ~FlightWriters() override;

    const Project& project() const { return m_project; }
    FrameMemory& memory() { return m_memory; }

    /// From any thread.
    void take(const std::shared_ptr<LiveFlight>& flight);
    /// \return false when the station ends, and nothing is waited for any more
    bool pause(int milliseconds);
    /// Ends flights that were left open.
    void endLeft(FlightRecorder& recorder, const QStringList& files);

Q_SIGNALS:
    void said(const QString& words);
    /// A mission file was made.
    void began(const QString& file);
    void ended(const RecordedFlight& flight);

private:
    void write();
    void addWriter();
    std::shared_ptr<LiveFlight> next();
    void addThread(const std::function<void()>& work);

    const Project m_project;
    FrameMemory m_memory;
    QMutex m_mutex;
    QWaitCondition m_changed;
    std::deque<std::shared_ptr<LiveFlight>> m_waiting;
    std::vector<std::unique_ptr<QThread>> m_threads;
    int m_idle = 0; ///< threads without a flight
    bool m_isEnding = false;
};
