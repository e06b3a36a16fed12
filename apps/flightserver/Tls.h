// SPDX-License-Identifier: MIT
#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

// A certificate with its key, for connections from now on.
class Tls
{
public:
    // Throws std::runtime_error when they cannot be used.
    Tls(std::string certificate, std::string key);

    // Reads the files again; where that fails the old ones stay, and it throws.
    void reload();
    [[nodiscard]] SSL* newConnection(int socket) const;

private:
    struct Free {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
    };
    using Context = std::unique_ptr<SSL_CTX, Free>;
    [[nodiscard]] Context load() const;

    const std::string m_certificate;
    const std::string m_key;
    Context m_context;
};
