// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QFileInfo>

/// When a file was read last and what its time stamp was, to tell whether it has to be read again.
class FileStamp
{
public:
    FileStamp() = default;
    /// To be taken before the file is read.
    explicit FileStamp(const QString& path)
        : m_changed(QFileInfo(path).lastModified()), m_readAt(QDateTime::currentDateTime())
    {
    }

    bool isOutdated(const QString& path) const
    {
        constexpr int Seconds = 2; // a time stamp may stand still for that long while the file changes
        const QDateTime changed = QFileInfo(path).lastModified();
        return changed != m_changed || changed.addSecs(Seconds) >= m_readAt;
    }

private:
    QDateTime m_changed;
    QDateTime m_readAt;
};
