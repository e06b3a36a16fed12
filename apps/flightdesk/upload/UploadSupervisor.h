// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>

#include <optional>

class OperatorLink;

/// Brings an upload back that has come to rest with rows waiting.
///
/// An uploading operator has states that it does not leave by itself: its timer stopped when a mission's row
/// vanished before it was sent, its file closed or never opened because it was locked. Nothing reports them,
/// but they share one sign: rows wait, the network is there, and nothing is accepted or refused any more.
/// Then the operator is pointed at a file that waits, its ticks are let through and its timer is started.
///
/// One that goes through the project by itself (EUploadEnv::WholeProject) may also look for each mission in
/// another file for ever: failures leave missions in its queue, and each scan adds as many as a tick takes.
/// It is first shown an empty project for as long as the rest has lasted; there each tick takes one, and none
/// is added.
///
/// The host tells what it sees, calls look() about once a second, and has the first four signals reach
/// SetFlightMissionFilePath, slotStartUploadTimer, slotCheckNewData and slotResetUploadFlow of the operator,
/// through queued connections: what the operator does at the end of a pass would undo a direct call.
class UploadSupervisor : public QObject
{
    Q_OBJECT

public:
    /// \param interval  the operator's start interval, in milliseconds
    explicit UploadSupervisor(int interval, QObject* parent = nullptr);
    ~UploadSupervisor() override;

    /// To be told when the operator's start interval changes.
    void setInterval(int interval);
    /// The operator that is brought back.
    void connectTo(const OperatorLink& link) const;
    /// For an operator that goes through the project by itself: a project folder whose only mission file
    /// holds no rows. The host has no use of its own for the current project while it is shown.
    void setEmptyProject(const QString& folder) { m_emptyProject = folder; }
    /// Has the operator begin with a file, whatever state it is in; no request may be in flight.
    void arm(const QString& file);

    /// A row ceased to wait, or a request failed, after which the operator tries again by itself.
    void noteSignOfLife(qint64 now);
    /// The operator announced a batch of log rows.
    void noteBatch(const QString& mission);

    /// \param now  milliseconds on a clock that never jumps
    /// \param waitingFile  a file with rows that can be sent, best another one each time; empty when there is
    ///                     none
    void look(qint64 now, const QString& waitingFile, bool network);

    /// Silence after which the operator is taken to be at rest: longer than a request can last, so that none
    /// is in flight when the file is changed under the operator.
    qint64 quietTime() const { return m_quietTime; }

Q_SIGNALS:
    void setFile(const QString& path);
    void startUploadTimer(bool start);
    void checkNewData();
    void resetUploadFlow();

    void rearmed(const QString& file);
    /// Rows are accepted but stay waiting: the file does not take the marks. The operator would send them
    /// again for ever; it has been told to go on with the next file.
    void unmarkable(const QString& mission);

private:
    void showEmptyProject(qint64 now);
    void showOwnProject();

    qint64 m_quietTime = 0;
    QString m_emptyProject;
    QString m_project;        ///< the host's, while the empty one is shown
    qint64 m_emptySince = -1; ///< when that began
    bool m_wasEmptied = false;
    std::optional<qint64> m_lastSign; ///< nothing before the first look
    int m_batches = 0;                ///< in a row, with nothing marked and nothing refused
    QString m_mission;
};
