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
        Logger::instance().setListener([this](Level, const QString& text) { emit line(text); });
    }
    ~LogFeed() override { Logger::instance().setListener({}); }

signals:
    void line(const QString& text);
};
