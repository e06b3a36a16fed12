// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QObject>

/// Quits the application as if its window had been closed when the process is told to end (SIGTERM, SIGINT,
/// SIGHUP), so that flights being recorded get their ends and breakpoints. One object at a time.
class EndSignals : public QObject
{
    Q_OBJECT

public:
    EndSignals();
    ~EndSignals() override;

private:
    void quit();

    int m_pipe[2] = {-1, -1};
};
