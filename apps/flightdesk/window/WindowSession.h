// SPDX-License-Identifier: MIT
#pragma once

#include "book/FlightReader.h"
#include "download/FileDownload.h"
#include "operator/LogFeed.h"
#include "project/MissionWatch.h"
#include "project/ProjectLock.h"
#include "record/BreakpointKeeper.h"
#include "record/RecorderPool.h"
#include "upload/Uploader.h"
#include "window/FlightModel.h"
#include "window/LiveStation.h"
#include "window/LogModel.h"
#include "window/MissionModel.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QQueue>
#include <QtCore/QSet>
#include <QtCore/QThread>

/// What the window shows and commands: the project, its recordings, its upload and its downloads. Whatever
/// may take a while runs on other threads.
class WindowSession : public QObject
{
    Q_OBJECT

public:
    WindowSession();
    /// Ends recordings and upload; what was received is in the files then.
    ~WindowSession() override;

    /// Throws Failure.
    /// \param make  make the folder when it is missing
    void openProject(const QString& path, bool make);
    bool hasProject() const { return m_project.has_value(); }
    QString projectPath() const { return m_project ? m_project->path() : QString(); }
    bool hasNetwork() const { return m_network; }
    /// Whether the project's files have been looked through since it was opened.
    bool hasLooked() const { return m_looked; }
    /// Whether somebody is signed in whose upload goes on, or is paused.
    bool isUploading() const
    {
        return m_uploader.state() == Uploader::State::Running ||
               m_uploader.state() == Uploader::State::Paused;
    }

    void record(const FlightTask& task);
    /// Ends a recording for good.
    /// \param keep  what was recorded stays, else its file is removed
    void stopRecording(int row, bool keep);
    /// How fast flights are recorded that have not ended.
    void setSpeed(double speed) { m_recorders.setSpeed(speed); }
    /// Whether something is recorded that the end of the program would end.
    bool isRecording() const { return m_recorders.isBusy() || m_station.state() != LiveStation::State::Off; }

    /// Begins to record what links hear. Throws Failure when they cannot be right.
    void connectLinks(const QStringList& links, bool heartbeat);
    LiveStation* station() { return &m_station; }

    /// Signs a user in and starts the upload. Throws Failure.
    void signIn(const QString& server, const QString& token);

    MissionModel* missions() { return &m_missions; }
    FlightReader* reader() { return &m_reader; }
    FlightModel* flights() { return &m_flights; }
    LogModel* log() { return &m_log; }
    Uploader* uploader() { return &m_uploader; }
    /// The server that is used; empty when nobody is signed in.
    QString server() const { return m_server; }
    /// What is special about the project: that it is read-only, or that another program uploads it.
    QString noticeText() const;
    /// What goes on with the upload, in a sentence or two.
    QString uploadText() const;
    /// A download that is yet to be started, on a thread on which it deletes itself at its end.
    FileDownload* makeDownload(FileDownload::Way way);

Q_SIGNALS:
    void projectOpened();
    /// The missions have been looked through once more.
    void looked();
    void sampled(int flight);
    void tokenRejected();
    /// A log that is in the project already was not recorded again.
    void knownLogFound(const FlightTask& task);

private:
    void followStation();
    void startWatch();
    void noteLooked(bool network);
    QString discard(const QString& file);
    void noteFinished(int flight, const RecordedFlight& result);
    void notePace(const Backlog& backlog);
    void noteTrouble();
    QString paceText(const Backlog& backlog) const;
    QString troubleText(const UploadTrouble& trouble, const QString& records) const;
    void follow();
    void followUpload();
    void stopWatch();

    LogFeed m_feed;
    LogModel m_log;
    MissionModel m_missions;
    FlightModel m_flights;
    BreakpointKeeper m_breakpoints;
    std::optional<Project> m_project;
    std::unique_ptr<ProjectLock> m_lock; ///< one program at a time uploads
    QString m_otherUploads;              ///< who else does; empty when nobody does
    QHash<int, FlightTask> m_tasks;      ///< that have not ended
    bool m_network = true;
    bool m_looked = false; ///< since the project was opened
    QString m_server;
    QSet<int> m_unwanted; ///< flights whose files are removed when they have ended
    QElapsedTimer m_clock;
    QQueue<std::pair<qint64, qint64>> m_settled; ///< when how many rows had been accepted
    qint64 m_toldAt = 0;
    qint64 m_told = 0; ///< accepted rows that the log tells of
    QString m_trouble; ///< that the log tells of
    RecorderPool m_recorders;
    LiveStation m_station;
    Uploader m_uploader; // ends before those that record, so that no late reply marks a breakpoint of theirs
    FlightReader m_reader;
    QThread m_watchThread;
    QThread m_downloadThread;
};
