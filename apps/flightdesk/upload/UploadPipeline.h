// SPDX-License-Identifier: MIT
#pragma once

#include "operator/OperatorLog.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QString>

#include <functional>
#include <optional>

/// What an uploading operator is doing, as far as its log and its signals tell.
class UploadPipeline
{
    Q_DECLARE_TR_FUNCTIONS(UploadPipeline)

public:
    void noteBegan(OperatorLog::Rows rows, const QString& mission);
    /// The operator announced a batch of log rows.
    void noteBatch(const QString& mission);
    /// \param wait  milliseconds to the next try
    void noteFailed(const RequestFailure& failure, qint64 now, int wait);
    void noteMarked() { m_failure.reset(); }

    /// In words, empty when nothing is known to be on its way.
    QString text(qint64 now, const std::function<QString(const QString& mission)>& name) const;
    /// Whose rows are on their way.
    const QString& mission() const { return m_mission; }
    /// Until the next try after a failure; 0 while none is waited for.
    int secondsToTry(qint64 now) const;

private:
    void noteSending(const QString& kind, const QString& mission);

    QString m_kind; ///< of the rows on their way
    QString m_mission;
    std::optional<RequestFailure> m_failure; ///< of the last request
    qint64 m_nextTry = 0;
};
