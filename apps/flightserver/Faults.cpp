// SPDX-License-Identifier: MIT
#include "Faults.h"

#include <QtCore/QStringList>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace
{
struct Syntax {
    const char* name;
    Fault::What what;
    int least; // smallest and largest value after "="; none is taken where both are 0
    int most;
};

constexpr int MaxInt = std::numeric_limits<int>::max();
constexpr Syntax Syntaxes[] = {
    {"http", Fault::What::Http, 200, 599},    {"status", Fault::What::Status, -MaxInt, MaxInt},
    {"delay", Fault::What::Delay, 0, MaxInt}, {"stall", Fault::What::Stall, 0, 0},
    {"cut", Fault::What::Cut, 0, 0},          {"garbage", Fault::What::Garbage, 0, 0},
    {"empty", Fault::What::Empty, 0, 0},      {"drop", Fault::What::Drop, 0, 0},
};

constexpr int NoStatus = -1; // of an answer that names none

Answer cutAnswer()
{
    Answer answer;
    answer.status = NoStatus;
    answer.content = R"({"status":)";
    answer.ending = Answer::Ending::Cut;
    return answer;
}

// Of a fault after which nothing is stored.
Answer answerOf(const Fault& fault)
{
    Answer answer;
    answer.status = NoStatus;
    switch (fault.what) {
    case Fault::What::Http:
        answer.http = answer.status = fault.value;
        break;
    case Fault::What::Status:
        answer = makeAnswer(fault.value, "fault");
        answer.http = 200;
        break;
    case Fault::What::Stall:
        answer.ending = Answer::Ending::Silent;
        break;
    case Fault::What::Garbage:
        answer.content = "<html>no json</html>";
        answer.type = "text/html";
        break;
    case Fault::What::Empty:
        answer.content = "{}";
        break;
    default:
        answer = cutAnswer();
        break;
    }
    return answer;
}

[[noreturn]] void refuse(const QString& text, const char* why)
{
    throw std::runtime_error("fault \"" + text.toStdString() + "\": " + why);
}

std::uint64_t parseCount(const QString& number, const QString& text)
{
    bool ok = false;
    const std::uint64_t count = number.toULongLong(&ok);
    if (!ok) {
        refuse(text, "AFTER and COUNT are whole numbers, as in \"http=500:2:1\"");
    }
    return count;
}
} // namespace

Fault parseFault(const QString& text)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() > 3) {
        refuse(text, "expected WHAT[:AFTER[:COUNT]]");
    }
    const QString name = parts[0].section(QLatin1Char('='), 0, 0);
    const auto* const syntax =
        std::find_if(std::begin(Syntaxes), std::end(Syntaxes),
                     [&name](const Syntax& known) { return name == QLatin1String(known.name); });
    if (syntax == std::end(Syntaxes)) {
        refuse(text, "expected http=N, status=N, delay=MS, stall, cut, garbage, empty or drop");
    }

    Fault fault;
    fault.what = syntax->what;
    const bool takesValue = syntax->least != syntax->most;
    if (takesValue) {
        bool ok = false;
        fault.value = parts[0].section(QLatin1Char('='), 1).toInt(&ok);
        if (!ok || fault.value < syntax->least || fault.value > syntax->most) {
            refuse(text, "the number after \"=\" is missing or out of range");
        }
    } else if (parts[0] != name) {
        refuse(text, "this fault takes no value");
    }
    if (parts.size() > 1) {
        fault.after = parseCount(parts[1], text);
    }
    if (parts.size() > 2) {
        fault.count = parseCount(parts[2], text);
    }
    return fault;
}

void FaultyHandler::handle(Request request, Reply reply)
{
    const std::uint64_t before = m_requests++;
    const auto strikes = [before](const Fault& fault) {
        return before >= fault.after && before - fault.after < fault.count;
    };
    const auto fault = std::find_if(m_faults.begin(), m_faults.end(), strikes);
    if (fault == m_faults.end()) {
        m_handler.handle(std::move(request), std::move(reply));
    } else if (fault->what == Fault::What::Delay) {
        delay(fault->value, std::move(request), std::move(reply));
    } else if (fault->what == Fault::What::Drop) {
        m_handler.handle(std::move(request),
                         [reply = std::move(reply)](const Answer&) { reply(cutAnswer()); });
    } else {
        reply(answerOf(*fault));
    }
}

void FaultyHandler::delay(int ms, Request request, Reply reply)
{
    const auto timer = m_delays.emplace(m_delays.end(), m_io);
    timer->expires_after(std::chrono::milliseconds(ms));
    timer->async_wait([this, timer, request = std::move(request),
                       reply = std::move(reply)](boost::system::error_code) mutable {
        m_delays.erase(timer);
        m_handler.handle(std::move(request), std::move(reply));
    });
}

void FaultyHandler::stop()
{
    for (boost::asio::steady_timer& timer : m_delays) {
        timer.cancel();
    }
}
