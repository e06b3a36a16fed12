// SPDX-License-Identifier: MIT
#pragma once

#include <KvLog.h>

#include <QtCore/QObject>
#include <QtCore/QString>

/// The log's lines as a signal. Whoever receives it on another thread than the writer's gets it queued.
class LogFeed : public QObject
{
    Q_OBJECT

public:
    LogFeed()
    {
        Logger::instance().setListener(
            [this](Level level, const QString& text) { Q_EMIT line(text, static_cast<int>(level)); });
    }
    ~LogFeed() override { Logger::instance().setListener({}); }

Q_SIGNALS:
    /// \param level  of Level, as a number that crosses threads
    void line(const QString& text, int level);
};
