// SPDX-License-Identifier: MIT
#include "Stream.h"

#include "Tls.h"

#include <openssl/err.h>

#include <algorithm>
#include <climits>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace
{
using Result = Stream::Result;

Result systemResult(ssize_t bytes, Result::What wants)
{
    if (bytes > 0) {
        return {Result::What::Done, static_cast<std::size_t>(bytes)};
    }
    const bool mayComeYet = bytes < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
    return {mayComeYet ? wants : Result::What::Closed};
}

int atMostInt(std::size_t size)
{
    return static_cast<int>(std::min<std::size_t>(size, INT_MAX));
}

void setOption(int socket, int option)
{
    const int yes = 1;
    setsockopt(socket, IPPROTO_TCP, option, &yes, sizeof(yes));
}
} // namespace

void Stream::Free::operator()(ssl_st* connection) const
{
    SSL_free(connection);
}

Stream::Stream(boost::asio::ip::tcp::socket socket, const Tls* tls) : m_socket(std::move(socket))
{
    boost::system::error_code ignored;
    m_socket.native_non_blocking(true, ignored);
    setOption(m_socket.native_handle(), TCP_NODELAY);
    if (tls != nullptr) {
        m_tls.reset(tls->newConnection(m_socket.native_handle()));
    }
}

Result Stream::read(std::span<char> buffer)
{
    if (m_tls) {
        ERR_clear_error();
        return tlsResult(SSL_read(m_tls.get(), buffer.data(), atMostInt(buffer.size())));
    }
    return systemResult(recv(m_socket.native_handle(), buffer.data(), buffer.size(), 0),
                        Result::What::WantsRead);
}

Result Stream::write(std::span<const char> bytes)
{
    if (m_tls) {
        ERR_clear_error();
        return tlsResult(SSL_write(m_tls.get(), bytes.data(), atMostInt(bytes.size())));
    }
    return systemResult(send(m_socket.native_handle(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                        Result::What::WantsWrite);
}

Result Stream::tlsResult(int result)
{
    if (result > 0) {
        return {Result::What::Done, static_cast<std::size_t>(result)};
    }
    switch (SSL_get_error(m_tls.get(), result)) {
    case SSL_ERROR_WANT_READ:
        return {Result::What::WantsRead};
    case SSL_ERROR_WANT_WRITE:
        return {Result::What::WantsWrite};
    default:
        return {Result::What::Closed};
    }
}

void Stream::endWriting()
{
    if (m_tls) {
        ERR_clear_error();
        SSL_shutdown(m_tls.get());
    }
    shutdown(m_socket.native_handle(), SHUT_WR);
}

void Stream::acknowledgeAtOnce()
{
#ifdef TCP_QUICKACK // Linux only
    setOption(m_socket.native_handle(), TCP_QUICKACK);
#endif
}
