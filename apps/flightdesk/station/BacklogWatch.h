// SPDX-License-Identifier: MIT
#pragma once

#include "upload/Backlog.h"

#include <QtCore/QMetaType>
#include <QtCore/QObject>

/// Counts again and again what of a project waits for upload. It is meant for a thread of its own: the rows
/// of days without a network take a while to count, and then it counts more rarely.
class BacklogWatch : public QObject
{
    Q_OBJECT

public:
    explicit BacklogWatch(Project project);

    void look();
    /// A file that was made since.
    void follow(const QString& file) { m_counter.follow(file); }

Q_SIGNALS:
    void looked(const Backlog& backlog, bool network);

private:
    BacklogCounter m_counter;
    bool m_hasLooked = false;
};

Q_DECLARE_METATYPE(Backlog)
