// SPDX-License-Identifier: MIT
#pragma once

#include "Bound.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

// Where a kind of record arrives, and whether its requests carry an array of rows or one mission.
struct Endpoint {
    const char* path;
    const char* kind;
    bool isBatch;
};

inline constexpr Endpoint Endpoints[] = {
    {"/flight/upload", "flight_mission", false},
    {"/flight/posupload", "pos_data", true},
    {"/flight/uasstatusupload", "uas_status", true},
    {"/flight/detailupload", "flight_monitor_detail_log", true},
    {"/flight/upload4video", "flight_video_mission", false},
};

// nullptr: no such path.
const Endpoint* findEndpoint(std::string_view path);

// A request that the server does not take: the status and the words of the reply.
class Refusal : public std::runtime_error
{
public:
    Refusal(int status, const std::string& message) : std::runtime_error(message), m_status(status) {}
    [[nodiscard]] int status() const { return m_status; }

private:
    int m_status;
};

// The bytes of a body, with room behind them that the JSON parser may read.
class Body
{
public:
    Body() = default;
    explicit Body(std::size_t size);

    char* data() { return m_bytes.get(); }
    [[nodiscard]] std::size_t size() const { return m_size; }

private:
    std::unique_ptr<char[]> m_bytes; // not set to zero, so that pages are touched only as bytes come
    std::size_t m_size = 0;
};

// A row as it came: parts of the body that brought it.
struct Record {
    const char* jsonText;
    const char* idText;
    std::uint32_t jsonLength;
    std::uint32_t idLength;

    [[nodiscard]] std::string_view json() const { return {jsonText, jsonLength}; }
    [[nodiscard]] std::string_view id() const { return {idText, idLength}; }
};

// The rows of one request.
class Batch
{
public:
    Batch() = default;
    // Decodes the form in its place and checks every row; throws Refusal for anything malformed, and where
    // the rows need more room than is left.
    Batch(const Endpoint& endpoint, Body body, Bound::Reservation room);

    [[nodiscard]] const Endpoint& endpoint() const { return *m_endpoint; }
    [[nodiscard]] std::string_view mission() const { return m_mission; }
    [[nodiscard]] const std::deque<Record>& records() const { return m_records; }

private:
    void readArray(char* at, const char* end);
    void readMission(char* at, const char* end);
    void add(const char* object, std::size_t length);
    std::string_view keepId(std::string_view id, std::string_view object);

    const Endpoint* m_endpoint = nullptr;
    Body m_body;
    Bound::Reservation m_room;
    std::string_view m_mission;
    std::deque<Record> m_records;
    std::deque<std::string> m_unescaped; // ids that the body holds in another form
};
