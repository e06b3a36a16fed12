// SPDX-License-Identifier: MIT
#pragma once

#include "Backlog.h"
#include "LogFeed.h"
#include "OperatorThread.h"
#include "UploadSupervisor.h"
#include "UploadTrouble.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QStringList>
#include <QtCore/QTimer>
#include <QtCore/QVector>

#include <memory>
#include <optional>

struct UploadResult {
    bool done = false;   ///< nothing waits any more
    qint64 accepted = 0; ///< rows accepted and marked
    QVector<WaitingRows> waiting;
    QStringList unreadable;
    QString reason; ///< why rows wait, as far as known
};

/// Uploads the flight missions or the video missions that wait in a project, with an operator on a thread of
/// its own. It always ends: when nothing waits, when the server rejects the token, or when nothing has been
/// accepted for a while.
///
/// Server address and user are set before; the log's threshold must let the library's lines through.
class UploadSession : public QObject
{
    Q_OBJECT

public:
    struct Options {
        int interval = 3000;  ///< milliseconds between a failure and the next try
        int patience = 60000; ///< milliseconds without an accepted row
        bool easyFly = false; ///< the video missions instead of the flight missions
    };

    UploadSession(const Project& project, const Options& options, const LogFeed& log,
                  QObject* parent = nullptr);
    void start();
    const UploadResult& result() const { return m_result; }

signals:
    void progress(qint64 accepted, qint64 all);
    void note(const QString& text);
    void finished();

private slots:
    void readLogLine(const QString& line);
    void noteBatch(const QString& project, const QString& mission);
    void begin();
    void look();

private:
    void pointAtMission();
    void noteSettled();
    bool isLost();
    void finish();
    void noteRearmed(const QString& file);
    void noteUnmarkable(const QString& mission);
    QString reason() const;

    const Options m_options;
    Backlog m_backlog;
    UploadSupervisor m_supervisor;
    std::unique_ptr<OperatorThread> m_operator;
    QTimer m_lookTimer;
    QElapsedTimer m_clock;
    qint64 m_lastAccepted = 0;
    qint64 m_settled = 0;
    int m_rejections = 0; ///< of the token, since a row was accepted
    std::optional<UploadTrouble> m_trouble;
    QStringList m_unmarkable;
    WaitingRows m_current; ///< in easy-fly mode: of the mission that the operator was told
    UploadResult m_result;
};
