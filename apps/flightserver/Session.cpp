// SPDX-License-Identifier: MIT
#include "Session.h"

#include "Front.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <algorithm>
#include <cstring>

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;
using What = Stream::Result::What;

namespace
{
constexpr int BadRequest = 400;
constexpr int Forbidden = 403;
constexpr int NotFound = 404;
constexpr int MethodNotAllowed = 405;
constexpr int LengthRequired = 411;
constexpr int TooLarge = 413;
constexpr int HeaderTooLarge = 431;
constexpr int ServerError = 500;
constexpr int NoRoom = 503;

constexpr int ReadsInTurn = 16;              // then the others have theirs
constexpr std::size_t RequestRoom = 2 << 10; // for what a request needs beside its body

constexpr std::string_view HeaderEnd = "\r\n\r\n";
constexpr const char* Continue = "HTTP/1.1 100 Continue\r\n\r\n";

std::string_view toView(boost::beast::string_view text)
{
    return {text.data(), text.size()};
}

std::string_view tokenOf(const http::request<http::empty_body>& header)
{
    return header.count("token") == 1 ? toView(header["token"]) : std::string_view();
}

// nullptr: taken, or the ledger's fault.
const char* reasonOf(int status)
{
    switch (status) {
    case BadRequest:
        return "form";
    case Forbidden:
        return "token";
    case TooLarge:
        return "size";
    case NoRoom:
        return "room";
    default:
        return nullptr;
    }
}

std::string headFor(const Answer& answer, bool keepAlive)
{
    const std::size_t announced = answer.content.size() * (answer.ending == Answer::Ending::Cut ? 2 : 1);
    const std::string reason(toView(http::obsolete_reason(static_cast<http::status>(answer.http))));
    return "HTTP/1.1 " + std::to_string(answer.http) + ' ' + reason + "\r\nContent-Type: " + answer.type +
           "\r\nContent-Length: " + std::to_string(announced) +
           (keepAlive ? "\r\n\r\n" : "\r\nConnection: close\r\n\r\n");
}
} // namespace

struct Session::Exchange {
    const Endpoint* endpoint = nullptr;
    std::optional<Sender> sender;
    Body body;
    std::size_t filled = 0;
    std::size_t bytes = 0; // of the body; that one is handed on
    Bound::Reservation room;
    Clock::time_point start = Clock::now();
    bool keepAlive = false;
    Answer::Ending ending = Answer::Ending::Whole;
};

Session::Session(Front& front, Stream stream)
    : m_front(front), m_stream(std::move(stream)), m_since(Clock::now())
{
}

Session::~Session() = default;

void Session::start(List::iterator place)
{
    m_place = place;
    wait(What::WantsRead); // what it sends is mostly not there yet
}

void Session::wait(What what)
{
    const auto type = what == What::WantsWrite ? asio::socket_base::wait_write : asio::socket_base::wait_read;
    m_stream.socket().async_wait(type, [self = shared_from_this()](error_code error) {
        if (error || self->m_state == State::Closed) {
            self->close();
        } else if (self->m_state == State::Answering) {
            self->writeOn();
        } else {
            self->readOn();
        }
    });
}

// The bytes that were moved; where it is none the session goes on when the stream can, or is closed.
std::size_t Session::advance(const Stream::Result& result)
{
    if (result.what == What::Closed) {
        close();
    } else if (result.what != What::Done) {
        wait(result.what);
    }
    return result.bytes;
}

void Session::readOn()
{
    for (int turn = 0; turn < ReadsInTurn; ++turn) {
        const std::span<char> buffer = target();
        const std::size_t bytes = advance(m_stream.read(buffer));
        measure(bytes);
        if (bytes == 0 || !take(buffer.first(bytes))) {
            return;
        }
        if (bytes < buffer.size() && !m_stream.mayHoldMore()) {
            wait(What::WantsRead);
            return;
        }
    }
    asio::post(m_front.m_io, [self = shared_from_this()] {
        if (self->m_state != State::Closed) {
            self->readOn();
        }
    });
}

// A sender's time begins anew whenever he has brought what is asked for in it.
void Session::measure(std::size_t bytes)
{
    m_received += bytes;
    if (isArriving() && m_received >= m_front.m_limits.slowBytes) {
        m_received = 0;
        m_since = Clock::now();
    }
}

std::span<char> Session::target()
{
    if (m_state == State::Body) {
        return {m_exchange->body.data() + m_exchange->filled, m_exchange->bytes - m_exchange->filled};
    }
    return m_front.m_scratch;
}

// True when more is to be read.
bool Session::take(std::span<char> bytes)
{
    switch (m_state) {
    case State::Idle:
    case State::Head:
        return takeHead(bytes);
    case State::Body:
        return takeBody(bytes.size());
    default:
        return true; // is thrown away
    }
}

bool Session::takeHead(std::span<char> bytes)
{
    if (m_state == State::Idle) {
        m_received = bytes.size();
        setState(State::Head);
    }
    if (m_head.empty()) {
        return begin(bytes);
    }
    if (!keep(bytes)) {
        return false;
    }
    const bool mayBeWhole = bytes.empty() || std::find(bytes.begin(), bytes.end(), '\n') != bytes.end();
    if (!mayBeWhole && m_head.size() < m_front.m_limits.maxHeader) {
        return true;
    }
    std::string whole = std::move(m_head);
    m_head.clear();
    m_headRoom = {};
    return begin(whole);
}

// What waits for the rest of its header, or behind another request, takes room as well. False: there is none.
bool Session::keep(std::span<const char> bytes)
{
    if (m_head.empty()) {
        m_headRoom = m_front.bound().reservation();
    }
    if (!m_headRoom.grow(bytes.size())) {
        m_exchange = std::make_unique<Exchange>();
        refuse(NoRoom, "room", "no room for the request now");
        return false;
    }
    m_head.append(bytes.data(), bytes.size());
    return true;
}

// bytes: a header, or what there is of it, and what follows.
bool Session::begin(std::span<char> bytes)
{
    // A parser that is given a long header piece by piece spends more on it than its sender.
    const std::size_t most = m_front.m_limits.maxHeader;
    const std::size_t end = std::string_view(bytes.data(), bytes.size()).find(HeaderEnd);
    if (end == std::string_view::npos && bytes.size() < most) {
        return keep(bytes);
    }
    m_exchange = std::make_unique<Exchange>();
    if (end == std::string_view::npos || end > most) {
        refuse(HeaderTooLarge, "header", "the header is too long");
        return false;
    }
    http::request_parser<http::empty_body> parser;
    parser.header_limit(static_cast<std::uint32_t>(most + HeaderEnd.size()));
    parser.body_limit(boost::none);
    parser.skip(true); // the body is not the parser's
    error_code error;
    const std::size_t used = parser.put(asio::const_buffer(bytes.data(), end + HeaderEnd.size()), error);
    if (error || !parser.is_header_done()) {
        refuse(BadRequest, "syntax", "this is no request");
        return false;
    }
    const auto announced = parser.content_length();
    const auto length = announced ? std::optional<std::uint64_t>(*announced) : std::nullopt;
    m_exchange->keepAlive = parser.get().keep_alive();
    const Judgement judgement = judge(parser.get(), length);
    if (judgement.status != 0) {
        refuse(judgement.status, judgement.reason, judgement.words);
        return false;
    }
    const bool waits = http::token_list(parser.get()[http::field::expect]).exists("100-continue");
    return admit(*length, bytes.subspan(used), waits);
}

Session::Judgement Session::judge(const Header& header, std::optional<std::uint64_t> length)
{
    const std::string_view target = toView(header.target());
    m_exchange->endpoint = findEndpoint(target.substr(0, target.find('?')));
    if (m_exchange->endpoint == nullptr) {
        return {NotFound, "path", "no such path"};
    }
    if (header.method() != http::verb::post) {
        return {MethodNotAllowed, "method", "records are sent with POST"};
    }
    try {
        m_exchange->sender = m_front.m_backing.gate.senderOf(tokenOf(header));
    } catch (const std::runtime_error&) {
        return {ServerError, "ledger", "the ledger cannot be read"};
    }
    if (!m_exchange->sender) {
        return {Forbidden, "token", "the token is missing or not valid"};
    }
    return judgeLength(header, length);
}

Session::Judgement Session::judgeLength(const Header& header, std::optional<std::uint64_t> length)
{
    const Limits& limits = m_front.m_limits;
    // Without a length nothing can be reserved; with both, two readers might see two different requests.
    if (header.count(http::field::transfer_encoding) > 0) {
        return {length ? BadRequest : LengthRequired, "length",
                "a body needs a Content-Length, and that alone"};
    }
    const bool isList = toView(header[http::field::content_length]).find(',') != std::string_view::npos;
    if (isList || header.count(http::field::content_length) > 1) {
        return {BadRequest, "length", "there is more than one Content-Length"};
    }
    if (!length) {
        return {LengthRequired, "length", "the Content-Length is missing"};
    }
    if (*length > std::min(limits.maxBody, limits.memory - RequestRoom)) {
        return {TooLarge, "size", "the body is too long"};
    }
    if (m_front.m_pace.isBehind()) {
        return {NoRoom, "behind", "too much waits to be stored"};
    }
    m_exchange->room = m_front.bound().reservation();
    if (!m_exchange->room.grow(*length + RequestRoom)) {
        return {NoRoom, "room", "no room for the body now"};
    }
    try {
        m_exchange->body = Body(*length);
    } catch (const std::bad_alloc&) {
        return {NoRoom, "memory", "no memory for the body now"};
    }
    return {};
}

// rest: what is there of the body, and of what follows.
bool Session::admit(std::size_t length, std::span<char> rest, bool waitsForLeave)
{
    m_exchange->bytes = length;
    const std::size_t there = std::min(length, rest.size());
    std::copy_n(rest.data(), there, m_exchange->body.data());
    if (!keep(rest.subspan(there))) {
        return false;
    }
    if (there < length) {
        m_stream.acknowledgeAtOnce();
        if (waitsForLeave) {
            m_stream.write(
                {Continue, std::strlen(Continue)}); // so short that it passes, or else he waits no longer
        }
        setState(State::Body);
    }
    return takeBody(there);
}

bool Session::takeBody(std::size_t bytes)
{
    m_exchange->filled += bytes;
    if (m_exchange->filled < m_exchange->bytes) {
        return true;
    }
    handle();
    return false;
}

void Session::refuse(int status, const char* reason, const std::string& message)
{
    m_front.m_backing.metrics.countRefusal(reason);
    m_exchange->keepAlive = false;
    answer(makeAnswer(status, message));
}

void Session::handle()
{
    if (m_front.m_pace.isBehind()) { // so many came at once that it did not show when they were let in
        refuse(NoRoom, "behind", "too much waits to be stored");
        return;
    }
    setState(State::Handling);
    const std::size_t bytes = m_exchange->bytes;
    m_front.m_pace.begin(bytes, Clock::now());
    m_front.m_backing.handler.handle(
        {m_exchange->endpoint, *m_exchange->sender, std::move(m_exchange->body), std::move(m_exchange->room)},
        [self = shared_from_this(), bytes](const Answer& answered) {
            self->m_front.m_pace.end(bytes, Clock::now());
            if (const char* const reason = reasonOf(answered.status)) {
                self->m_front.m_backing.metrics.countRefusal(reason);
            }
            self->answer(answered);
        });
}

void Session::answer(const Answer& answer)
{
    if (m_state == State::Closed) {
        return;
    }
    log(answer);
    m_exchange->keepAlive = m_exchange->keepAlive && !m_front.m_stopping;
    m_exchange->ending = answer.ending;
    if (answer.ending == Answer::Ending::Silent) {
        setState(State::Silent);
        wait(What::WantsRead);
        return;
    }
    m_out = headFor(answer, m_exchange->keepAlive) + answer.content;
    m_written = 0;
    setState(State::Answering);
    writeOn();
}

void Session::writeOn()
{
    while (m_written < m_out.size()) {
        const std::size_t bytes = advance(m_stream.write(std::span(m_out).subspan(m_written)));
        if (bytes == 0) {
            return;
        }
        m_written += bytes;
    }
    finishAnswer();
}

void Session::finishAnswer()
{
    const bool isCut = m_exchange->ending == Answer::Ending::Cut;
    const bool keepAlive = m_exchange->keepAlive;
    m_exchange.reset();
    m_out = {};
    if (isCut) {
        close();
    } else if (keepAlive) {
        next();
    } else {
        // To close with bytes unread would take the answer away from a client that is still sending.
        m_stream.endWriting();
        setState(State::Draining);
        readOn();
    }
}

void Session::next()
{
    setState(State::Idle);
    if (m_head.empty() && !m_stream.mayHoldMore()) {
        wait(What::WantsRead);
        return;
    }
    asio::post(m_front.m_io, [self = shared_from_this()] { // not deeper and deeper for each request in a row
        if (self->m_state == State::Idle && (self->m_head.empty() || self->takeHead({}))) {
            self->readOn();
        }
    });
}

void Session::log(const Answer& answer)
{
    const Exchange& exchange = *m_exchange;
    if (exchange.endpoint != nullptr) {
        m_front.m_backing.metrics.countRequest(*exchange.endpoint, answer.status);
    }
    if (!m_front.m_backing.accessLog.isOn()) {
        return;
    }
    error_code error;
    const auto remote = m_stream.socket().remote_endpoint(error);
    m_front.m_backing.accessLog.write({error ? "-" : addressOf(remote),
                                       exchange.endpoint != nullptr ? exchange.endpoint->path : "-",
                                       exchange.sender ? exchange.sender->owner->name : "-", answer.status,
                                       answer.rows, exchange.bytes, Clock::now() - exchange.start});
}

void Session::setState(State state)
{
    const bool wasIdle = m_state == State::Idle;
    const bool isIdle = state == State::Idle;
    if (wasIdle != isIdle) {
        Session::List& from = wasIdle ? m_front.m_idle : m_front.m_busy;
        Session::List& to = isIdle ? m_front.m_idle : m_front.m_busy;
        to.splice(to.end(), from, m_place);
    }
    m_state = state;
    m_since = Clock::now();
}

void Session::checkTime(Clock::time_point now)
{
    const Limits& limits = m_front.m_limits;
    const auto time = now - m_since;
    switch (m_state) {
    case State::Head:
    case State::Body:
    case State::Answering:
        if (time > limits.slowWindow) {
            close("slow");
        }
        return;
    case State::Draining:
        if (time > limits.drain) {
            close();
        }
        return;
    default:
        return;
    }
}

void Session::checkEnd(bool inTime)
{
    if (m_state == State::Silent || (isArriving() && !inTime)) {
        close();
    }
}

void Session::close(const char* reason)
{
    if (m_state == State::Closed) {
        return;
    }
    if (reason != nullptr) {
        m_front.m_backing.metrics.countRefusal(reason);
    }
    const std::shared_ptr<Session> self = shared_from_this(); // the list may hold the last one
    (m_state == State::Idle ? m_front.m_idle : m_front.m_busy).erase(m_place);
    m_state = State::Closed;
    error_code ignored;
    m_stream.socket().close(ignored);
    m_exchange.reset();
    m_headRoom = {};
}
