// SPDX-License-Identifier: MIT
#include "station/BacklogWatch.h"

#include <KvData.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>

#include <utility>

namespace
{
constexpr int LookInterval = 1000; // milliseconds
constexpr int Rest = 20;           // times as long as a look has taken
} // namespace

BacklogWatch::BacklogWatch(Project project) : m_counter(std::move(project))
{
    qRegisterMetaType<Backlog>();
}

void BacklogWatch::look()
{
    QElapsedTimer taken;
    taken.start();
    if (std::exchange(m_hasLooked, true)) {
        m_counter.recount();
    } else {
        m_counter.countAll();
    }
    Q_EMIT looked(m_counter.backlog(),
                  CKvControl::GetInstance(false, EPlaneType::Multirotor)->IsNetWorkConnected());
    QTimer::singleShot(qMax(LookInterval, int(taken.elapsed()) * Rest), this, &BacklogWatch::look);
}
