// SPDX-License-Identifier: MIT
#include "Tls.h"

#include <openssl/err.h>

#include <array>
#include <stdexcept>

namespace
{
void check(int result, const std::string& what)
{
    if (result == 1) {
        return;
    }
    std::array<char, 256> words{};
    ERR_error_string_n(ERR_peek_error(), words.data(), words.size());
    ERR_clear_error();
    throw std::runtime_error("cannot use " + what + ": " + words.data());
}
} // namespace

Tls::Tls(std::string certificate, std::string key)
    : m_certificate(std::move(certificate)), m_key(std::move(key)), m_context(load())
{
}

void Tls::reload()
{
    m_context = load();
}

SSL* Tls::newConnection(int socket) const
{
    SSL* const connection = SSL_new(m_context.get());
    if (connection == nullptr || SSL_set_fd(connection, socket) != 1) {
        SSL_free(connection);
        throw std::bad_alloc();
    }
    SSL_set_accept_state(connection);
    return connection;
}

Tls::Context Tls::load() const
{
    Context context(SSL_CTX_new(TLS_server_method()));
    ERR_clear_error();
    check(context && SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1 ? 1 : 0, "TLS");
    check(SSL_CTX_use_certificate_chain_file(context.get(), m_certificate.c_str()),
          "certificate " + m_certificate);
    check(SSL_CTX_use_PrivateKey_file(context.get(), m_key.c_str(), SSL_FILETYPE_PEM),
          "key " + m_key + " of certificate " + m_certificate);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                        SSL_MODE_RELEASE_BUFFERS);
    return context;
}
