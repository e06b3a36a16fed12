// SPDX-License-Identifier: MIT
#pragma once

#include "link/LinkSettings.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QObject>
#include <QtCore/QTimer>

#include <memory>

/// Bytes that come in on one way. A link that cannot be opened, or goes, is tried again about once a second
/// for as long as the object lives. Used on one thread, which has an event loop.
class Link : public QObject
{
    Q_OBJECT

public:
    static std::unique_ptr<Link> make(const LinkSettings& settings);

    const LinkSettings& settings() const { return m_settings; }
    /// As it is written, a port that was left to the system included.
    virtual QString text() const { return m_settings.text(); }
    bool isUp() const { return m_isUp; }

    /// Begins to open the link.
    void open();
    /// Sends to whoever is on the other side, if that is known.
    virtual void send(const QByteArray& bytes) = 0;

Q_SIGNALS:
    void up();
    void lost(const QString& why);
    /// Could not be opened; told once for each reason.
    void waits(const QString& why);
    void received(const QByteArray& bytes);

protected:
    explicit Link(LinkSettings settings);

    /// Opens the link; noteUp() or noteDown() follows.
    virtual void attempt() = 0;
    void noteUp();
    /// It is tried again, but not twice within a second.
    void noteDown(const QString& why);

private:
    const LinkSettings m_settings;
    QTimer m_retry{this};
    QElapsedTimer m_sinceAttempt;
    bool m_isUp = false;
    QString m_why;
};
