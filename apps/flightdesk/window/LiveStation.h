// SPDX-License-Identifier: MIT
#pragma once

#include "station/Station.h"

#include <QtCore/QElapsedTimer>

/// A station beside the window. It begins, lives and ends on a thread of its own: it waits for the disk when
/// it looks for the project's open flights and when it ends those in the air.
class LiveStation : public QObject
{
    Q_OBJECT

public:
    enum class State { Off, Beginning, On, Ending };

    explicit LiveStation(QObject* parent = nullptr);
    /// Ends the flights in the air, and waits until they are written.
    ~LiveStation() override;

    /// Begins to record; on() or failed() follows. Throws Failure when the links cannot be right.
    /// \param links  as on a command line
    void begin(const Project& project, const QStringList& links, bool heartbeat);
    /// Ends the flights in the air.
    void end();
    State state() const { return m_state; }

    /// How the links are, behind what has to be known.
    QString text() const;
    bool hasTrouble() const;

Q_SIGNALS:
    /// State or words.
    void changed();
    void failed(const QString& words);
    void looked(const StationState& state);
    void sampled(const QVector<VehicleSamples>& vehicles);
    void ended(const RecordedFlight& flight);

private:
    void open(const Project& project, const StationOptions& options);
    void follow();
    void say(const QString& words);
    bool isWordy() const;
    void setState(State state);

    QThread m_thread;
    QObject m_home;                     ///< lives on the thread
    std::unique_ptr<Station> m_station; ///< touched on the thread only
    State m_state = State::Off;
    QVector<LinkState> m_links;
    QString m_words; ///< what was said last
    QElapsedTimer m_sinceSaid;
};
