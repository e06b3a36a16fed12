// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLink.h"

#include <QtCore/QObject>
#include <QtCore/QThread>

/// An uploading operator on a thread of its own, so that reading a long log never stalls the host.
class OperatorThread : public QObject
{
    Q_OBJECT

public:
    /// \param interval  milliseconds between a failure and the next try
    /// \param easyFly  video missions instead of flight missions
    OperatorThread(int interval, bool easyFly, QObject* parent = nullptr);
    /// Stops the upload, and waits for what the operator is doing; accepted rows stay marked.
    ~OperatorThread() override;

    /// Constructs the operator, which looks through the project's files; ready() follows.
    void start();
    /// Stops the upload without waiting. The object deletes itself.
    void retire();
    void setInterval(int interval);

    const OperatorLink& link() const { return m_link; }

Q_SIGNALS:
    void ready();
    /// A batch of log rows is on its way.
    /// \param firstRow  its id; when the next batch begins with the same one, the first was not marked
    void batch(const QString& mission, const QString& firstRow);
    /// Nothing of the file waits any more; the operator has closed it and waits for another one. It goes
    /// through flight missions file by file.
    void passEnded();

private:
    void makeOperator();
    void pauseAndQuit();
    void noteBatch(const QString& mission);

    const int m_interval; ///< at the start
    const bool m_easyFly;
    bool m_isEnding = false;
    OperatorLink m_link;
    QThread m_thread;
    QString m_file;                                ///< used on the thread only
    QObject* m_worker = nullptr;                   ///< lives on the thread and owns the operator
    CKvFlightDataDbOperator* m_operator = nullptr; ///< used on the thread only
};
