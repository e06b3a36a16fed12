// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>

/// Quits the application as if its window had been closed when the process is told to end (SIGTERM, SIGINT,
/// SIGHUP), so that flights being recorded get their ends. One object at a time.
class EndSignals : public QObject
{
    Q_OBJECT

public:
    EndSignals();
    ~EndSignals() override;

    /// The signal that has come, once its event has been processed; 0 before.
    int signal() const { return m_signal; }
    /// What a process exits with that was told to end by the signal, as shells have it: 130 for Ctrl-C.
    int exitCode() const { return 128 + m_signal; }

private:
    void quit();

    int m_pipe[2] = {-1, -1};
    int m_signal = 0;
};
