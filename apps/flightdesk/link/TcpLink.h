// SPDX-License-Identifier: MIT
#pragma once

#include "link/Link.h"

#include <QtNetwork/QTcpSocket>

/// Connects to a host. A connection on which nothing comes any more is given up and made anew: a cable that
/// was pulled does not end it, and TCP by itself waits ever longer before it sends again.
class TcpLink : public Link
{
    Q_OBJECT

public:
    explicit TcpLink(const LinkSettings& settings);

    void send(const QByteArray& bytes) override;

protected:
    void attempt() override;

private:
    void read();
    void giveUp(const QString& why);

    QTcpSocket m_socket{this};
    QTimer m_silence{this};
};
