// SPDX-License-Identifier: MIT
#include "link/Link.h"

#include "link/SerialLink.h"
#include "link/TcpLink.h"
#include "link/UdpLink.h"

#include <utility>

namespace
{
constexpr int RetryInterval = 1000; // milliseconds
}

Link::Link(LinkSettings settings) : m_settings(std::move(settings))
{
    m_retry.setSingleShot(true);
    connect(&m_retry, &QTimer::timeout, this, &Link::open);
}

std::unique_ptr<Link> Link::make(const LinkSettings& settings)
{
    switch (settings.kind) {
    case LinkSettings::Kind::Udp:
        return std::make_unique<UdpLink>(settings);
    case LinkSettings::Kind::Tcp:
        return std::make_unique<TcpLink>(settings);
    case LinkSettings::Kind::Serial:
        break;
    }
    return std::make_unique<SerialLink>(settings);
}

void Link::open()
{
    m_sinceAttempt.start();
    attempt();
}

void Link::noteUp()
{
    m_isUp = true;
    m_why.clear();
    Q_EMIT up();
}

void Link::noteDown(const QString& why)
{
    m_retry.start(static_cast<int>(qMax(qint64(0), RetryInterval - m_sinceAttempt.elapsed())));
    if (std::exchange(m_isUp, false)) {
        Q_EMIT lost(why);
    } else if (std::exchange(m_why, why) != why) {
        Q_EMIT waits(why);
    }
}
