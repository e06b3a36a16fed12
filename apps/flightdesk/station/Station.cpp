// SPDX-License-Identifier: MIT
#include "station/Station.h"

#include "station/OpenMark.h"
#include "words/Failure.h"

#include <QtCore/QCoreApplication>

Station::Station(const Project& project, const StationOptions& options)
    : m_lock(project, ProjectLock::Use::Recording)
{
    const QString inUse = m_lock.take();
    if (!inUse.isEmpty()) {
        throw Failure(inUse);
    }
    m_writers = std::make_unique<FlightWriters>(project, OpenMark::all(project));
    m_receiver = new Receiver(options, *m_writers);
    m_backlog = new BacklogWatch(project);
    connect(m_writers.get(), &FlightWriters::said, this, &Station::said);
    connect(m_writers.get(), &FlightWriters::ended, this, &Station::ended);
    connect(m_writers.get(), &FlightWriters::began, m_backlog, &BacklogWatch::follow);
    connect(m_receiver, &Receiver::linkUp, this, &Station::linkUp);
    connect(m_receiver, &Receiver::linkLost, this, &Station::linkLost);
    connect(m_receiver, &Receiver::linkWaits, this, &Station::linkWaits);
    connect(m_receiver, &Receiver::looked, this, &Station::looked);
    connect(m_receiver, &Receiver::sampled, this, &Station::sampled);
    connect(m_backlog, &BacklogWatch::looked, this, &Station::counted);
    m_receiver->moveToThread(&m_readThread);
    m_backlog->moveToThread(&m_countThread);
    connect(&m_readThread, &QThread::started, m_receiver, &Receiver::start);
    connect(&m_readThread, &QThread::finished, m_receiver, &QObject::deleteLater);
    connect(&m_countThread, &QThread::started, m_backlog, &BacklogWatch::look);
    connect(&m_countThread, &QThread::finished, m_backlog, &QObject::deleteLater);
    m_readThread.start();
    m_countThread.start();
}

Station::~Station()
{
    finish();
}

void Station::finish()
{
    if (!m_writers) {
        return;
    }
    QMetaObject::invokeMethod(m_receiver, &Receiver::finish, Qt::BlockingQueuedConnection);
    for (QThread* thread : {&m_readThread, &m_countThread}) {
        thread->quit();
        thread->wait();
    }
    m_writers.reset();
    QCoreApplication::sendPostedEvents(this); // what the threads have said at last
}
