// SPDX-License-Identifier: MIT
#include "book/FlightReader.h"

#include "export/ExportFile.h"
#include "words/Failure.h"

#include <QtCore/QLocale>

namespace
{
struct Stopped {
};

/// Calls a function with a flight of a file, if it has it.
void withFlight(const QString& path, const QString& id, const std::function<void(Flight&)>& use)
{
    MissionFile file(path);
    const QVector<MissionCount> missions = file.missions();
    for (const MissionCount& mission : missions) {
        if (mission.id == id) {
            Flight flight(file, mission);
            use(flight);
        }
    }
}

std::function<void()> stopper(const std::atomic_int& now, int turn)
{
    return [&now, turn] {
        if (now != turn) {
            throw Stopped();
        }
    };
}
} // namespace

FlightReader::FlightReader(QObject* parent) : QObject(parent)
{
    qRegisterMetaType<FlightProfile>();
    qRegisterMetaType<QVector<FlightEvent>>();
    qRegisterMetaType<FlightFigures>();
    m_pages.setMaxThreadCount(1);
    m_figures.setMaxThreadCount(1);
    m_exports.setMaxThreadCount(1);
}

FlightReader::~FlightReader()
{
    forget();
    m_pages.waitForDone();
    m_figures.waitForDone();
    m_exports.waitForDone();
}

void FlightReader::forget()
{
    ++m_page;
    ++m_book;
    m_pages.clear();
    m_figures.clear();
}

void FlightReader::open(const QString& file, const QString& mission)
{
    const int turn = ++m_page;
    m_pages.clear();
    m_pages.start([this, file, mission, turn] { readPage(file, mission, turn); });
}

void FlightReader::figure(const QString& file, const QString& mission, bool soon)
{
    const int turn = m_book;
    m_figures.start([this, file, mission, turn] { readFigures(file, mission, turn); }, soon ? 1 : 0);
}

void FlightReader::exportTo(const QString& path, const ExportFormat& format, const QString& file,
                            const QString& mission)
{
    m_exports.start([this, path, &format, file, mission] {
        try {
            ExportFile target(path, format);
            withFlight(file, mission, [&](Flight& flight) {
                const qint64 written = target.add(flight);
                target.commit();
                const QString missing = missingWords(flight, written);
                const QString text =
                    tr("%1 %2 are in %3")
                        .arg(QLocale().toString(written), QLatin1String(format.records), path);
                Q_EMIT exported(missing.isEmpty() ? text : tr("%1; %2").arg(text, missing), written == 0);
            });
        } catch (const Failure& failure) {
            Q_EMIT exported(failure.words(), true);
        }
    });
}

void FlightReader::readPage(const QString& file, const QString& mission, int turn)
{
    const auto step = stopper(m_page, turn);
    try {
        step();
        withFlight(file, mission, [&](Flight& flight) {
            FlightProfile::read(flight, step,
                                [&](const FlightProfile& profile) { Q_EMIT profiled(mission, profile); });
            Q_EMIT happened(mission, FlightEvent::of(flight, step));
        });
    } catch (const Stopped&) { // another flight is wanted
    }
}

void FlightReader::readFigures(const QString& file, const QString& mission, int turn)
{
    const auto step = stopper(m_book, turn);
    try {
        step();
        withFlight(file, mission,
                   [&](Flight& flight) { Q_EMIT figured(file, mission, FlightFigures::of(flight, step)); });
    } catch (const Stopped&) { // another project is open
    }
}
