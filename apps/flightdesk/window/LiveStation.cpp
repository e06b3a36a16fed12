// SPDX-License-Identifier: MIT
#include "window/LiveStation.h"

#include "link/SerialLink.h"
#include "words/Failure.h"

#include <KvLog.h>

#include <QtCore/QLocale>

#include <algorithm>

namespace
{
constexpr int Lasting = 65000; // milliseconds; a station repeats each minute what still has to be known
} // namespace

LiveStation::LiveStation(QObject* parent) : QObject(parent)
{
    m_home.moveToThread(&m_thread);
    m_thread.start();
}

LiveStation::~LiveStation()
{
    QMetaObject::invokeMethod(
        &m_home, [this] { m_station.reset(); }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

void LiveStation::begin(const Project& project, const QStringList& links, bool heartbeat)
{
    StationOptions options;
    options.links = LinkSettings::parseAll(links);
    options.heartbeat = heartbeat;
    options.samples = true;
    if (options.links.isEmpty()) {
        throw Failure(tr("Enter a link."));
    }
    m_links.clear();
    m_words.clear();
    setState(State::Beginning);
    QMetaObject::invokeMethod(&m_home, [this, project, options] { open(project, options); });
}

/// On the thread.
void LiveStation::open(const Project& project, const StationOptions& options)
{
    try {
        for (const LinkSettings& link : options.links) {
            if (link.kind == LinkSettings::Kind::Serial) {
                SerialLink::check(link);
            }
        }
        m_station = std::make_unique<Station>(project, options);
    } catch (const Failure& failure) {
        QMetaObject::invokeMethod(this, [this, words = failure.words()] {
            setState(State::Off);
            Q_EMIT failed(words);
        });
        return;
    }
    follow();
    QMetaObject::invokeMethod(this, [this] { setState(State::On); });
}

/// On the thread; what is said arrives on the window's.
void LiveStation::follow()
{
    const Station* const station = m_station.get();
    connect(station, &Station::linkWaits, this, [this](const QString& link, const QString& why) {
        say(tr("%1: %2; it is tried again each second").arg(link, why));
    });
    connect(station, &Station::linkLost, this, [this](const QString& link, const QString& why) {
        say(tr("lost %1: %2; it is tried again each second").arg(link, why));
    });
    connect(station, &Station::linkUp, this, [this](const QString& link) {
        m_words = m_words.contains(link) ? QString() : m_words;
        Q_EMIT changed();
    });
    connect(station, &Station::said, this, &LiveStation::say);
    connect(station, &Station::ended, this, &LiveStation::ended);
    connect(station, &Station::sampled, this, &LiveStation::sampled);
    connect(station, &Station::looked, this, [this](const StationState& state) {
        m_links = state.links;
        Q_EMIT looked(state);
        Q_EMIT changed();
    });
}

void LiveStation::end()
{
    setState(State::Ending);
    QMetaObject::invokeMethod(&m_home, [this] {
        m_station.reset();
        QMetaObject::invokeMethod(this, [this] { setState(State::Off); });
    });
}

void LiveStation::setState(State state)
{
    m_state = state;
    Q_EMIT changed();
}

void LiveStation::say(const QString& words)
{
    Logger::instance().write(Level::Warn, words);
    m_words = words;
    m_sinceSaid.start();
    Q_EMIT changed();
}

QString LiveStation::text() const
{
    if (m_state == State::Off) {
        return tr("Connect to vehicles to record them while they fly.");
    }
    if (m_state == State::Ending) {
        return tr("Ending the flights in the air.");
    }
    QStringList parts;
    if (isWordy()) {
        parts.append(m_words);
    }
    for (const LinkState& link : m_links) {
        parts.append(link.up
                         ? tr("%1: %2 frames, %3 lost")
                               .arg(link.text, QLocale().toString(link.frames), QLocale().toString(link.lost))
                         : tr("%1: down").arg(link.text));
    }
    return parts.join(QStringLiteral("; "));
}

bool LiveStation::isWordy() const
{
    return m_state == State::On && !m_words.isEmpty() && !m_sinceSaid.hasExpired(Lasting);
}

bool LiveStation::hasTrouble() const
{
    const bool isDown =
        std::any_of(m_links.cbegin(), m_links.cend(), [](const LinkState& link) { return !link.up; });
    return m_state == State::On && (isDown || isWordy());
}
