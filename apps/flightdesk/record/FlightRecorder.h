// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLink.h"
#include "project/Project.h"
#include "telemetry/LogFlights.h"
#include "telemetry/VehicleTracker.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

class CKvFlightDataDbOperator;
class Failure;

/// What became of one flight.
struct RecordedFlight {
    QString missionId;
    QString name;
    QString file;
    qint64 messages = 0; ///< handed over; with an empty error also found in the file
    qint64 positions = 0;
    qint64 statuses = 0;
    std::optional<Interruption> interruption;
    std::optional<double> clockOffset; ///< as VehicleTracker has it
    QString remark;                    ///< what is wrong with its log, as ", the log is cut off at 3:52, ..."
    QString incomplete;                ///< why it was not recorded to its end, in words; empty when it was
    qint64 seconds = 0;                ///< as far as it is stored
    qint64 wholeSeconds = 0;           ///< as its log has it; 0 when that is not known
    bool isKnown = false;              ///< nothing was recorded: the error names the mission that has its log
    QString error; ///< the words of the Failure that it ended with; to be stopped by somebody is no failure
};

/// Records flights into mission files of a project, one after another, with one operator. A flight is pulled
/// from a source as a whole, or pushed frame by frame.
///
/// All calls come from the thread of the constructor, which needs no event loop.
class FlightRecorder : public QObject
{
    Q_OBJECT

public:
    explicit FlightRecorder(const Project& project, const MissionFormat& format = MissionFormat::flight());
    ~FlightRecorder() override;

    /// Records all frames of the source as one mission. Events are processed on the way.
    RecordedFlight record(FrameSource& source, const QString& name, const QString& aircraft,
                          const LogOrigin& origin = {});

    /// Begins a flight; one that has not ended is forgotten. Throws Failure when there is no file for it.
    /// \param startUsec  microseconds since 1970, UTC
    /// \param clockOffset  VehicleTracker::clockOffset() where frames from before tell it
    void begin(qint64 startUsec, const QString& name, const QString& aircraft, const LogOrigin& origin = {},
               std::optional<double> clockOffset = {});
    /// Records a frame. Its stamp is in microseconds since 1970, and not before that of the frame before.
    /// What waits in memory is written when the first of it is a second old, with the frame that comes then.
    /// Throws Failure when that cannot be written: status records wait for another try, up to 49 messages are
    /// lost, and the flight goes on with the next frame.
    void take(const TelemetryFrame& frame);
    /// Writes what waits in memory: for a flight of which no frame may come for a while. Throws Failure.
    void flush();
    /// Writes what the file did not take, where it does now.
    void retry() { pointOperator(); }
    /// Throws Failure when the file has not taken what was last written, nor before: for a flight whose
    /// frames can be had again. To be called now and then; it looks once after each time that was written.
    void check();
    /// Ends the flight where it is, for good: it was not recorded to its end, and gets no breakpoint.
    RecordedFlight breakOff(const Failure& why);
    /// Ends the flight, and counts what is in its file.
    /// \param endUsec  no earlier than the last frame's stamp
    /// \param reason  why it ended with an armed aircraft; otherwise that is told from the frames
    RecordedFlight end(qint64 endUsec, const QString& reason = {});

    /// The flight that was begun last, so far.
    const RecordedFlight& flight() const { return m_flight; }

    /// Ends a flight that was left open in its file because its recorder was killed. A file that holds none
    /// yet goes. An aircraft that was armed when last heard gets its breakpoint.
    RecordedFlight endLeft(const QString& file);

    /// Stores where a recorded mission stopped, and has its row sent again; false when that failed.
    bool storeBreakpoint(const QString& file, const QString& missionId, const Breakpoint& here);

Q_SIGNALS:
    /// The file of a flight that begins was made; nothing is in it yet.
    void fileMade(const QString& file);
    void progress(qint64 done, qint64 size);
    /// A frame was taken, which may have told the vehicle's position or status.
    void told(const VehicleTracker::Records& records);

private Q_SLOTS:
    void noteWritten() { m_written = true; }
    void noteBreakpoint(bool stored) { m_breakpointStored = stored; }

private:
    void recordFrames(FrameSource& source, const QString& name, const QString& aircraft,
                      const LogOrigin& origin);
    void makeOperator();
    void abandonOperator();
    void pointOperator();
    void writeMission(const QString& startedAt, const QString& aircraft, const LogOrigin& origin);
    void writeIncomplete();
    void noteStored();
    void note(VehicleTracker::Records records);
    void writePositions();
    void writeStatuses();
    void writeClockOffset();
    void endMission(qint64 endUsec, const QString& reason);
    void writeComplete(qint64 endUsec, const QString& result);
    bool readLeft();
    void writeBreakpoint();
    void writeText(const QJsonArray& records, const QString& description);
    void verify();

    Project m_project;
    const MissionFormat& m_format;
    QString m_projectId;
    OperatorLink m_link;
    std::unique_ptr<CKvFlightDataDbOperator> m_operator;
    RecordedFlight m_flight;
    QString m_planId;
    VehicleTracker m_tracker;
    qint64 m_lastUsec = 0; ///< of the latest frame
    QJsonArray m_positions;
    QJsonArray m_statuses;
    QElapsedTimer m_sinceWritten;
    qint64 m_flushed = 0; ///< messages that had been handed over when all was written
    qint64 m_stored = 0;  ///< messages that were found in the file then
    int m_vainLooks = 0;  ///< in which there were no more of them
    qint64 m_startUsec = 0;
    bool m_written = false;
    bool m_breakpointStored = false;
};

Q_DECLARE_METATYPE(RecordedFlight)
