// SPDX-License-Identifier: MIT
#pragma once

#include "LogFeed.h"
#include "MissionModel.h"
#include "OperatorThread.h"
#include "UploadPipeline.h"
#include "UploadSupervisor.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QPointer>

/// Uploads a project as long as it is asked to, with an operator on a thread of its own.
///
/// A token is read once by an operator, so another token, and the change to or from easy-fly missions, take
/// another operator.
class Uploader : public QObject
{
    Q_OBJECT

public:
    enum class State { Off, Running, Paused, TokenRejected };

    Uploader(const MissionModel& missions, const LogFeed& log, QObject* parent = nullptr);

    State state() const { return m_state; }
    /// What is going on, in a sentence or two.
    QString text() const;
    /// The last request failed.
    bool hasFailed() const { return m_pipeline.trouble().has_value(); }

public slots:
    /// Begins anew, with the server and the user that are set now.
    void start();
    void stop();
    /// Stops; what the missions show is about to change altogether.
    void leaveProject();
    void pause();
    void resume();
    /// Has the operator end its round after the batch in flight and begin a new one.
    void reset();
    void setInterval(int milliseconds);
    void setEasyFly(bool easyFly);
    /// The missions have been looked through.
    void look(bool network);

signals:
    /// State or words.
    void changed();
    void tokenRejected();
    void note(const QString& text);

private:
    void arm();
    void readLine(const QString& line);
    void noteBatch(const QString& project, const QString& mission);
    void pointAtMission(const ProjectTotals& totals);
    void goOnUnlessMoved();
    void noteRearmed(const QString& file);
    void noteUnmarkable(const QString& mission);
    void setState(State state);

    const MissionModel& m_missions;
    QPointer<OperatorThread> m_operator;
    std::unique_ptr<UploadSupervisor> m_supervisor;
    UploadPipeline m_pipeline;
    QElapsedTimer m_clock;
    State m_state = State::Off;
    bool m_easyFly = false;
    bool m_network = true;
    bool m_looked = false; ///< since the project was opened
    bool m_moved = false;  ///< since the upload was resumed
    int m_interval = 3000;
    qint64 m_marked = 0;
    ProjectTotals m_current;
};
