// SPDX-License-Identifier: MIT
#include "Load.h"

#include "flightdesk/words/Latin1.h"
#include "MissionFile.h"
#include "Report.h"

#include <QtCore/QUrl>

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <queue>
#include <random>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{
using Clock = std::chrono::steady_clock;
constexpr double Patience = 20; // the library's
constexpr int IdLength = 36;

double since(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void raiseFileLimit()
{
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
}

int connectTo(const QByteArray& url)
{
    const QUrl address(QString::fromUtf8(url));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(address.port()));
    inet_pton(AF_INET, address.host().toLatin1().constData(), &to.sin_addr);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    require(socket >= 0, "no more sockets: raise ulimit -n"_l1);
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof(yes));
    (void)connect(socket, reinterpret_cast<const sockaddr*>(&to), sizeof(to)); // goes on in the background
    return socket;
}

// A request of log rows whose ids are new each time, and sort by time as the library's do.
class RequestMaker
{
public:
    explicit RequestMaker(int rows)
    {
        QByteArray body = "flight_mission_id=" + MissionId + "&data=[";
        for (int i = 0; i < rows; ++i) {
            body += i > 0 ? R"(,{"id":")" : R"({"id":")";
            m_places.push_back(body.size());
            body += QByteArray(IdLength, '-') + R"(","created_at":"2024-01-02 08:30:00.000","message":")" +
                    QByteArray(MessageBytes * 4 / 3, 'x') + R"("})";
        }
        body += ']';
        const QByteArray head =
            "POST /flight/detailupload HTTP/1.1\r\nHost: bench\r\ntoken: bench\r\nContent-Type: "
            "application/x-www-form-urlencoded\r\nContent-Length: " +
            QByteArray::number(body.size()) + "\r\n\r\n";
        m_text = head + body;
        for (int& place : m_places) {
            place += head.size();
        }
    }
    void write(QByteArray& request)
    {
        static constexpr char Digits[] = "0123456789abcdef";
        if (request.size() != m_text.size()) {
            request = m_text;
            request.detach();
        }
        for (const int place : m_places) {
            quint64 bits = ++m_number;
            for (int i = 0; i < IdLength; bits = m_random()) {
                for (const int end = i + 12; i < end; bits <<= 4) {
                    request.data()[place + i++] = Digits[bits >> 44 & 15];
                }
            }
        }
    }
    void readIds(const QByteArray& request, std::vector<QByteArray>& ids) const
    {
        for (const int place : m_places) {
            ids.push_back(request.mid(place, IdLength));
        }
    }

private:
    QByteArray m_text;
    std::vector<int> m_places;
    std::mt19937_64 m_random{std::random_device()()};
    quint64 m_number = static_cast<quint64>(std::chrono::duration_cast<std::chrono::microseconds>(
                                                std::chrono::system_clock::now().time_since_epoch())
                                                .count());
};

struct Client {
    int socket = -1;
    bool isWaiting = false; // for an answer
    int served = 0;
    QByteArray request;
    qsizetype sent = 0;
    QByteArray reply;
    Clock::time_point start;
};

class Runner
{
public:
    explicit Runner(const Load& load)
        : m_load(load)
        , m_maker(load.rows)
        , m_epoll(epoll_create1(EPOLL_CLOEXEC))
        , m_clients(static_cast<std::size_t>(load.connections))
    {
        raiseFileLimit();
    }
    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;
    ~Runner()
    {
        for (const Client& client : m_clients) {
            close(client.socket);
        }
        close(m_epoll);
    }

    LoadResult run()
    {
        if (m_load.warm) {
            warmUp();
        }
        for (std::size_t i = 0; i < m_clients.size(); ++i) {
            const double spread =
                m_load.backlog > 0 ? std::max(m_load.retryAfter, m_load.retryUntil) : m_load.period;
            m_later.emplace(spread * static_cast<double>(i) / static_cast<double>(m_clients.size()), i);
        }
        while (m_busy > 0 || (!m_later.empty() && isOn())) {
            startLater();
            handleEvents();
        }
        m_result.seconds = since(m_start);
        for (const Client& client : m_clients) {
            m_result.unserved += client.served > 0 ? 0 : 1;
        }
        return m_result;
    }

private:
    void warmUp()
    {
        m_isWarming = true;
        for (Client& client : m_clients) {
            ++m_busy;
            begin(client);
            while (m_busy > 0) {
                handleEvents();
            }
            require(client.served > 0, "a client is not served"_l1);
        }
        m_isWarming = false;
        m_result = {};
        m_start = Clock::now();
    }
    [[nodiscard]] bool isOn() const { return since(m_start) < m_load.seconds; }
    void startLater()
    {
        while (!m_later.empty() && m_later.top().first <= since(m_start) && isOn()) {
            Client& client = m_clients[m_later.top().second];
            m_later.pop();
            ++m_busy;
            begin(client);
        }
    }
    void handleEvents()
    {
        epoll_event events[512];
        const int count = epoll_wait(m_epoll, events, 512, 10);
        for (int i = 0; i < count; ++i) {
            Client& client = m_clients[events[i].data.u64];
            if ((events[i].events & EPOLLOUT) != 0 && client.sent < client.request.size()) {
                send(client);
            } else if ((events[i].events & (EPOLLIN | EPOLLERR | EPOLLHUP)) != 0) {
                receive(client);
            }
        }
    }
    void begin(Client& client)
    {
        m_maker.write(client.request);
        client.sent = 0;
        client.reply.clear();
        client.start = Clock::now();
        client.isWaiting = true;
        countAttempt();
        if (client.socket < 0) {
            client.socket = connectTo(m_load.url);
            watch(client, EPOLL_CTL_ADD, EPOLLOUT);
        } else {
            send(client);
        }
    }
    void countAttempt()
    {
        const auto second = static_cast<std::size_t>(since(m_start));
        m_result.attempts.resize(std::max(m_result.attempts.size(), second + 1));
        ++m_result.attempts[second];
    }
    // As Qt's manager: first all of the request, then the reply.
    void send(Client& client)
    {
        const ssize_t sent =
            ::send(client.socket, client.request.constData() + client.sent,
                   static_cast<std::size_t>(client.request.size() - client.sent), MSG_NOSIGNAL);
        client.sent += std::max<ssize_t>(sent, 0);
        if (sent < 0 && errno != EAGAIN) {
            receive(client); // the server may have said why
            return;
        }
        watch(client, EPOLL_CTL_MOD, client.sent < client.request.size() ? EPOLLOUT : EPOLLIN);
    }
    void receive(Client& client)
    {
        char bytes[4096];
        const ssize_t count = recv(client.socket, bytes, sizeof(bytes), 0);
        if (count > 0) {
            client.reply.append(bytes, static_cast<int>(count));
        }
        const bool isWhole = client.reply.endsWith('}'); // of the JSON
        if (isWhole) {
            client.isWaiting = false;
            judge(client);
        } else if (!client.isWaiting) { // the server takes an idle connection back
            close(client.socket);
            client.socket = -1;
        } else if (count == 0 || (count < 0 && errno != EAGAIN)) {
            ++m_result.broken;
            pause(client);
        }
    }
    void judge(Client& client)
    {
        const double time = since(client.start);
        m_result.slowest = std::max(m_result.slowest, time);
        if (!client.reply.contains("\"status\":0}")) {
            ++m_result.refused;
            pause(client);
            return;
        }
        ++m_result.accepted;
        ++client.served;
        m_result.accepting.push_back(time);
        m_result.acceptedAt.push_back(since(m_start));
        if (m_load.keepsIds) {
            m_maker.readIds(client.request, m_result.ids);
        }
        if (m_isWarming || !isOn() || client.served == m_load.backlog) {
            --m_busy;
        } else if (m_load.period > 0) {
            --m_busy;
            m_later.emplace(since(m_start) + std::max(0.0, m_load.period - time), &client - m_clients.data());
        } else {
            begin(client);
        }
    }
    void pause(Client& client)
    {
        client.isWaiting = false;
        close(client.socket);
        client.socket = -1;
        --m_busy;
        const double more = std::max(0.0, m_load.retryUntil - m_load.retryAfter) * m_part(m_random);
        m_later.emplace(since(m_start) + m_load.retryAfter + more, &client - m_clients.data());
    }
    void watch(Client& client, int how, std::uint32_t what)
    {
        epoll_event event{};
        event.events = what;
        event.data.u64 = static_cast<std::uint64_t>(&client - m_clients.data());
        epoll_ctl(m_epoll, how, client.socket, &event);
    }

    using Later = std::pair<double, std::size_t>; // when, who

    const Load& m_load;
    RequestMaker m_maker;
    const int m_epoll;
    std::vector<Client> m_clients;
    std::priority_queue<Later, std::vector<Later>, std::greater<>> m_later;
    int m_busy = 0;
    bool m_isWarming = false;
    std::mt19937 m_random{std::random_device()()};
    std::uniform_real_distribution<> m_part{0, 1};
    Clock::time_point m_start = Clock::now();
    LoadResult m_result;
};
} // namespace

double LoadResult::percentile(double part) const
{
    require(!accepting.empty(), "the server accepted nothing"_l1);
    std::vector<double> sorted = accepting;
    const auto at =
        sorted.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(sorted.size() - 1));
    std::nth_element(sorted.begin(), at, sorted.end());
    return *at;
}

double LoadResult::longestGap(double from) const
{
    double gap = 0;
    double last = from;
    for (const double time : acceptedAt) {
        if (time > from) {
            gap = std::max(gap, time - last);
            last = time;
        }
    }
    require(last > from, "nothing was accepted any more"_l1);
    return gap;
}

int LoadResult::peakAttempts() const
{
    return *std::max_element(attempts.begin(), attempts.end());
}

LoadResult run(const Load& load)
{
    return Runner(load).run();
}

IdleConnections::IdleConnections(const QByteArray& url, int count)
{
    raiseFileLimit();
    for (int i = 0; i < count; ++i) {
        m_sockets.push_back(connectTo(url));
    }
}

IdleConnections::~IdleConnections()
{
    for (const int socket : m_sockets) {
        close(socket);
    }
}

double timeAnswer(const QByteArray& url, const QByteArray& request)
{
    const int socket = connectTo(url);
    epoll_event event{};
    event.events = EPOLLOUT;
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &event);
    epoll_wait(epoll, &event, 1, static_cast<int>(Patience * 1000)); // connected
    const double time = seconds([&] {
        send(socket, request.constData(), static_cast<std::size_t>(request.size()), MSG_NOSIGNAL);
        event.events = EPOLLIN;
        epoll_ctl(epoll, EPOLL_CTL_MOD, socket, &event);
        epoll_wait(epoll, &event, 1, static_cast<int>(Patience * 1000));
    });
    char bytes[16] = {};
    require(recv(socket, bytes, sizeof(bytes), 0) == sizeof(bytes), "no answer"_l1);
    close(epoll);
    close(socket);
    return time;
}
