// SPDX-License-Identifier: MIT
#include "command/EndSignals.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace
{
volatile std::sig_atomic_t s_wake = -1;

/// Of what Qt offers nothing may be called here; write() may.
void wake(int signal)
{
    const char byte = static_cast<char>(signal);
    [[maybe_unused]] const ssize_t written = ::write(s_wake, &byte, 1);
}

/// What whoever started the process had it ignore, as nohup does, stays ignored.
void answerSignals(void (*handler)(int))
{
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        if (std::signal(signal, handler) == SIG_IGN) {
            std::signal(signal, SIG_IGN);
        }
    }
}
} // namespace

EndSignals::EndSignals()
{
    if (::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return; // the process then ends at once, as without this object
    }
    s_wake = m_pipe[1];
    auto* const notifier = new QSocketNotifier(m_pipe[0], QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &EndSignals::quit);
    answerSignals(wake);
}

EndSignals::~EndSignals()
{
    answerSignals(SIG_DFL);
    ::close(m_pipe[0]);
    ::close(m_pipe[1]);
}

/// A second signal ends the process at once: whoever sends it has waited long enough.
void EndSignals::quit()
{
    answerSignals(SIG_DFL);
    char byte = 0;
    if (::read(m_pipe[0], &byte, 1) == 1) {
        m_signal = static_cast<unsigned char>(byte);
    }
    QCoreApplication::exit(); // quit() of Qt 6 asks the windows first, and one that records asks in turn
}
