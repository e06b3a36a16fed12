// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLog.h"
#include "upload/Backlog.h"
#include "upload/UploadPipeline.h"
#include "upload/UploadSupervisor.h"

#include <QtCore/QDateTime>
#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QTemporaryDir>

#include <memory>
#include <optional>

class OperatorThread;

/// Requests that fail, one after another.
struct UploadTrouble {
    RequestFailure failure; ///< of the last one
    QDateTime since;        ///< the first one
};

/// Uploads what waits in a project, file by file, as long as it is asked to, with an operator on a thread of
/// its own. Server address and user are set before.
///
/// A file is left when nothing of it waits any more, and also when each of its missions may have had its turn
/// and failed: what a server refuses for good must not keep the rest. Failures leave ids in the operator's
/// queue, which it would look for in the next file and come to rest; so it first empties the queue at a file
/// where nothing waits. The same leads out of every other state in which an operator comes to rest.
///
/// A token is read once by an operator, so another token, and the change to or from easy-fly missions, take
/// another operator.
class Uploader : public QObject
{
    Q_OBJECT

public:
    enum class State { Off, Running, Paused, TokenRejected };

    explicit Uploader(const LogFeed& log, QObject* parent = nullptr);

    State state() const { return m_state; }
    bool isEasyFly() const { return m_easyFly; }
    /// What has kept rows from being accepted since the last one was; nothing when all is well. It stays
    /// while a request is tried again.
    const std::optional<UploadTrouble>& trouble() const { return m_trouble; }
    /// Until the next try after a failure; 0 while none is waited for.
    int secondsToTry() const { return m_pipeline.secondsToTry(m_clock.elapsed(), m_interval); }
    /// Whose rows are on their way; empty when nothing is known, or requests fail.
    QString mission() const
    {
        return m_state == State::Running && !m_trouble ? m_pipeline.mission() : QString();
    }
    /// What the operator is doing, in words; empty when nothing is known.
    QString text(const std::function<QString(const QString& mission)>& name) const;

public Q_SLOTS:
    /// Begins anew, with the server and the user that are set now.
    void start();
    void stop();
    /// Stops for good: only a user with another token helps.
    void giveUpToken();
    void pause();
    void resume();
    /// Has the operator end its round after the batch in flight and begin a new one.
    void reset();
    void setInterval(int milliseconds);
    void setEasyFly(bool easyFly);
    /// What waits now; to be called about once a second.
    void look(const Backlog& backlog, bool network);

Q_SIGNALS:
    /// The operator has looked through the project's files, which may have taken a while.
    void ready();
    /// State or words.
    void changed();
    void failed(const RequestFailure& failure);
    /// The upload had come to rest and was brought back.
    void rearmed(const QString& text);
    /// Accepted rows cannot be marked in the file, which is left alone for a while.
    /// \param words  the reason, what is safe and what to do
    void unmarkable(const QString& file, const QString& words);

private:
    /// Where the operator was sent.
    enum class Place { NotReady, Nowhere, EmptyFile, WaitingFile };

    bool isFromOther() const;
    void begin();
    void goOn();
    void leave();
    void startOver();
    void point(const QString& file, int delay);
    void noteBegan(OperatorLog::Rows rows, const QString& mission);
    void noteBatch(const QString& mission, const QString& firstRow);
    void noteFailed(const RequestFailure& failure);
    void notePassEnded();
    void noteRearmed();
    void noteUnmarkable(const QString& mission);
    void leaveUnmarkable();
    bool isTimeToLeave() const;
    void forgetExplained(const Backlog& backlog);
    Backlog withoutUnmarkable(Backlog backlog);
    void setState(State state);

    const OperatorLog m_log;
    const QTemporaryDir m_folder;
    QString m_emptyFile; ///< a mission file without rows
    QPointer<OperatorThread> m_operator;
    std::unique_ptr<UploadSupervisor> m_supervisor;
    UploadPipeline m_pipeline;
    QElapsedTimer m_clock;
    State m_state = State::Off;
    bool m_easyFly = false;
    bool m_moved = false; ///< since the upload was resumed
    int m_interval = 3000;
    Backlog m_backlog;
    Place m_place = Place::NotReady;
    WaitingRows m_current; ///< the file, and in easy-fly mode the mission, that was pointed at last
    int m_failures = 0;    ///< since then
    QHash<QString, qint64> m_unmarkable; ///< files that take no marks, and when they are tried again
    std::optional<UploadTrouble> m_trouble;
    QString m_firstRow; ///< of the latest batch, unless something else than its reply may have ended it
};
