// SPDX-License-Identifier: MIT
#pragma once

#include <boost/asio/ip/tcp.hpp>

#include <cstddef>
#include <memory>
#include <span>

struct ssl_st;
class Tls;

// A connection that never blocks, with or without TLS. It keeps no buffers of its own: ten thousand idle ones
// are cheap.
class Stream
{
public:
    struct Result {
        enum class What { Done, WantsRead, WantsWrite, Closed };
        What what;
        std::size_t bytes = 0;
    };

    // Throws std::bad_alloc.
    Stream(boost::asio::ip::tcp::socket socket, const Tls* tls);

    Result read(std::span<char> buffer);
    // Whether bytes may have been received that the socket does not show.
    [[nodiscard]] bool mayHoldMore() const { return m_tls != nullptr; }
    Result write(std::span<const char> bytes);
    // Tells the other side that nothing more comes.
    void endWriting();
    // Has the kernel acknowledge what it holds back to acknowledge later, and from here to the next answer
    // everything at once. A client that writes a small header and then a small body, with Nagle's algorithm
    // on, would wait for it: some 40 ms a request.
    void acknowledgeAtOnce();
    boost::asio::ip::tcp::socket& socket() { return m_socket; }

private:
    struct Free {
        void operator()(ssl_st* connection) const;
    };
    Result tlsResult(int result);

    boost::asio::ip::tcp::socket m_socket;
    std::unique_ptr<ssl_st, Free> m_tls; // none: plain
};
