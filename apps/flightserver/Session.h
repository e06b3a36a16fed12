// SPDX-License-Identifier: MIT
#pragma once

#include "Handler.h"
#include "Stream.h"

#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/message.hpp>

#include <chrono>
#include <list>
#include <memory>
#include <string>

class Front;

// One connection of a client. It is judged before a byte of a body is read: path, method, token, length, and
// room for the announced bytes.
class Session : public std::enable_shared_from_this<Session>
{
public:
    using Clock = std::chrono::steady_clock;
    using List = std::list<std::shared_ptr<Session>>;

    Session(Front& front, Stream stream);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session();

    // place: in the front's list of idle sessions.
    void start(List::iterator place);
    // Gives up a client that has been idle or slow for too long.
    void checkTime(Clock::time_point now);
    // The server ends: what has arrived is answered, nothing more is taken.
    void checkEnd(bool inTime);
    [[nodiscard]] Clock::time_point since() const { return m_since; }
    void close(const char* reason = nullptr);

private:
    enum class State { Idle, Head, Body, Handling, Answering, Draining, Silent, Closed };
    struct Exchange; // a request that is being read or answered
    struct Judgement {
        int status = 0; // 0: let in
        const char* reason = "";
        const char* words = "";
    };
    using Header = boost::beast::http::request<boost::beast::http::empty_body>;

    void wait(Stream::Result::What what);
    std::size_t advance(const Stream::Result& result);
    void readOn();
    void measure(std::size_t bytes);
    std::span<char> target();
    bool take(std::span<char> bytes);
    bool takeHead(std::span<char> bytes);
    bool takeBody(std::size_t bytes);
    bool keep(std::span<const char> bytes);
    bool begin(std::span<char> bytes);
    bool admit(std::size_t length, std::span<char> rest, bool waitsForLeave);
    Judgement judge(const Header& header, std::optional<std::uint64_t> length);
    Judgement judgeLength(const Header& header, std::optional<std::uint64_t> length);
    void refuse(int status, const char* reason, const std::string& message);
    void handle();
    void answer(const Answer& answer);
    void writeOn();
    void finishAnswer();
    void next();
    void log(const Answer& answer);
    void setState(State state);
    [[nodiscard]] bool isArriving() const { return m_state == State::Head || m_state == State::Body; }

    Front& m_front;
    Stream m_stream;
    List::iterator m_place;
    State m_state = State::Idle;
    Clock::time_point m_since;  // of the state, or of when its sender had last brought enough
    std::size_t m_received = 0; // since then
    std::string m_head;         // of a request whose header is not whole yet, or that came behind another one
    Bound::Reservation m_headRoom;
    std::string m_out;
    std::size_t m_written = 0;
    std::unique_ptr<Exchange> m_exchange;
};
