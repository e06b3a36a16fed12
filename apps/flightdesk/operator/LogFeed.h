// SPDX-License-Identifier: MIT
#pragma once

#include <KvLog.h>

#include <QtCore/QObject>
#include <QtCore/QString>

/// The log's lines as a signal, and the replies that were of no use. Whoever receives them on another thread
/// than the writer's gets them queued. One object at a time.
class LogFeed : public QObject
{
    Q_OBJECT

public:
    LogFeed();
    ~LogFeed() override;

Q_SIGNALS:
    /// \param level  of Level, as a number that crosses threads
    void line(const QString& text, int level);
    /// A reply was of no use: its HTTP status, the number of its QNetworkReply::NetworkError, and words.
    void reply(const QString& text);
};
