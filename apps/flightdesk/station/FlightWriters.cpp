// SPDX-License-Identifier: MIT
#include "station/FlightWriters.h"

#include "station/FlightWriter.h"
#include "station/OpenMark.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QMutexLocker>

#include <utility>

FlightWriters::FlightWriters(Project project, const QStringList& left) : m_project(std::move(project))
{
    qRegisterMetaType<RecordedFlight>();
    const QMutexLocker lock(&m_mutex);
    addWriter();
    if (!left.isEmpty()) {
        addThread([this, left] {
            FlightRecorder recorder(m_project);
            endLeft(recorder, left);
        });
    }
}

FlightWriters::~FlightWriters()
{
    {
        const QMutexLocker lock(&m_mutex);
        m_isEnding = true;
        m_changed.wakeAll();
    }
    for (const auto& thread : m_threads) {
        thread->wait();
    }
}

void FlightWriters::addThread(const std::function<void()>& work)
{
    m_threads.emplace_back(QThread::create(work));
    m_threads.back()->start();
}

void FlightWriters::addWriter()
{
    ++m_idle;
    addThread([this] { write(); });
}

void FlightWriters::take(const std::shared_ptr<LiveFlight>& flight)
{
    const QMutexLocker lock(&m_mutex);
    m_waiting.push_back(flight);
    --m_idle;
    if (m_idle < 1) {
        addWriter();
    }
    m_changed.wakeAll();
}

/// On a thread of its own.
void FlightWriters::write()
{
    FlightRecorder recorder(m_project);
    connect(&recorder, &FlightRecorder::fileMade, &recorder, &OpenMark::set);
    while (const std::shared_ptr<LiveFlight> flight = next()) {
        FlightWriter(*this, recorder, *flight).run();
        const QMutexLocker lock(&m_mutex);
        ++m_idle;
    }
}

std::shared_ptr<LiveFlight> FlightWriters::next()
{
    const QMutexLocker lock(&m_mutex);
    while (m_waiting.empty() && !m_isEnding) {
        m_changed.wait(&m_mutex);
    }
    if (m_waiting.empty()) {
        return nullptr;
    }
    std::shared_ptr<LiveFlight> flight = m_waiting.front();
    m_waiting.pop_front();
    return flight;
}

bool FlightWriters::pause(int milliseconds)
{
    const QDeadlineTimer deadline(milliseconds);
    const QMutexLocker lock(&m_mutex);
    while (!m_isEnding && m_changed.wait(&m_mutex, deadline)) {
    }
    return !m_isEnding;
}

void FlightWriters::endLeft(FlightRecorder& recorder, const QStringList& files)
{
    for (const QString& file : files) {
        const RecordedFlight flight = recorder.endLeft(file);
        if (flight.error.isEmpty()) {
            OpenMark::clear(file);
        }
        Q_EMIT ended(flight);
    }
}
