// SPDX-License-Identifier: MIT
#include "Tokens.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <QtCore/QByteArray>

#include <stdexcept>

TokenHash hashToken(std::string_view token)
{
    TokenHash hash;
    SHA256(reinterpret_cast<const unsigned char*>(token.data()), token.size(), hash.data());
    return hash;
}

std::string makeToken()
{
    QByteArray bits(32, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bits.data()), bits.size()) != 1) {
        throw std::runtime_error("the system has no random bits for a token");
    }
    return bits.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals).toStdString();
}

bool isSame(const TokenHash& one, const TokenHash& other)
{
    return CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
}
