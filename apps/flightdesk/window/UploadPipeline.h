// SPDX-License-Identifier: MIT
#pragma once

#include "UploadTrouble.h"

#include <QtCore/QString>

#include <functional>
#include <optional>

/// What an uploading operator is doing, as far as its log lines and signals tell.
class UploadPipeline
{
public:
    /// \return whether the line tells that a request began or failed
    bool readLine(const QString& line, qint64 now);
    /// The operator announced a batch of log rows.
    void noteBatch(const QString& mission);
    void noteMarked();
    void clear() { *this = {}; }

    /// Mission of which rows are on their way, empty when none are known to be.
    QString mission() const { return m_mission; }
    /// In words.
    /// \param interval  milliseconds between a failure and the next try
    QString text(qint64 now, int interval, const std::function<QString(const QString& mission)>& name) const;
    const std::optional<UploadTrouble>& trouble() const { return m_trouble; }

private:
    QString m_kind; ///< of the rows on their way
    QString m_mission;
    std::optional<UploadTrouble> m_trouble; ///< of the last request, if it failed
    qint64 m_failedAt = 0;
};
