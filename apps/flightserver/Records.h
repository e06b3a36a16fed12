// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

#include <stdexcept>
#include <string>
#include <vector>

// Where a kind of record arrives, and whether its requests carry one object or an array of them.
struct Endpoint {
    const char* path;
    const char* kind;
    bool isBatch;
};

// nullptr: no such path.
const Endpoint* findEndpoint(const std::string& path);

struct Record {
    QByteArray id;
    QByteArray json;
};

struct Batch {
    QByteArray mission;
    std::vector<Record> records;
};

// A request that the server does not take: the status and the words of the reply.
class Refusal : public std::runtime_error
{
public:
    Refusal(int status, const std::string& message) : std::runtime_error(message), m_status(status) {}
    [[nodiscard]] int status() const { return m_status; }

private:
    int m_status;
};

// Decodes the form body of a request; throws Refusal for anything malformed.
Batch parseBatch(const Endpoint& endpoint, const std::string& body);
