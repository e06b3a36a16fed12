// SPDX-License-Identifier: MIT
#include "UploadPipeline.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QRegularExpression>

namespace
{
QString tr(const char* text)
{
    return QCoreApplication::translate("UploadPipeline", text);
}

QString kindName(const QString& post)
{
    return post == QLatin1String("FlightMission") ? tr("the mission row")
           : post == QLatin1String("PosData")     ? tr("positions")
                                                  : tr("status rows");
}
} // namespace

bool UploadPipeline::readLine(const QString& line, qint64 now)
{
    static const QRegularExpression post(
        QStringLiteral("^CKvFlightDataDbOperator::_post(\\w+) Start upload .*?id = (\\S+)"));
    if (const auto trouble = UploadTrouble::in(line)) {
        m_trouble = trouble;
        m_failedAt = now;
        m_mission.clear();
        return true;
    }
    const QRegularExpressionMatch match = post.match(line.left(300));
    if (match.hasMatch()) {
        m_kind = kindName(match.captured(1));
        m_mission = match.captured(2);
        m_trouble.reset();
    }
    return match.hasMatch();
}

void UploadPipeline::noteBatch(const QString& mission)
{
    m_kind = tr("log rows");
    m_mission = mission;
    m_trouble.reset();
}

void UploadPipeline::noteMarked()
{
    m_trouble.reset();
}

QString UploadPipeline::text(qint64 now, int interval,
                             const std::function<QString(const QString&)>& name) const
{
    if (m_trouble) {
        const qint64 left = (m_failedAt + interval - now + 999) / 1000;
        return left > 0 ? tr("Failed: %1. Next try in %2 s.").arg(m_trouble->words).arg(left)
                        : tr("Failed: %1. Trying again.").arg(m_trouble->words);
    }
    return m_mission.isEmpty() ? QString() : tr("Sending %1 of %2.").arg(m_kind, name(m_mission));
}
