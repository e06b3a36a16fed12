// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLog.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <functional>
#include <optional>

/// What keeps rows from being accepted. It lasts until some are: to try again is no success.
struct UploadTrouble {
    QString headline;
    QString todo;
    QDateTime since;
    qint64 secondsLeft = 0; ///< to the next try; 0 while there is one
};

/// What an uploading operator is doing, as far as its log and its signals tell.
class UploadPipeline
{
    Q_DECLARE_TR_FUNCTIONS(UploadPipeline)

public:
    void noteBegan(OperatorLog::Rows rows, const QString& mission);
    /// The operator announced a batch of log rows.
    void noteBatch(const QString& mission);
    void noteFailed(const RequestFailure& failure, qint64 now);
    void noteMarked() { m_failure.reset(); }

    /// In words, empty when nothing is known to be on its way.
    /// \param interval  milliseconds between a failure and the next try
    QString text(qint64 now, int interval, const std::function<QString(const QString& mission)>& name) const;
    /// Whose rows are on their way.
    const QString& mission() const { return m_mission; }
    std::optional<UploadTrouble> trouble(qint64 now, int interval) const;
    /// Requests fail, and nothing was accepted since.
    bool hasFailed() const { return m_failure.has_value(); }

private:
    void noteSending(const QString& kind, const QString& mission);

    QString m_kind; ///< of the rows on their way
    QString m_mission;
    std::optional<RequestFailure> m_failure; ///< the latest
    qint64 m_failedAt = 0;
    QDateTime m_failingSince;
    bool m_isTrying = false; ///< a request is on its way
};
