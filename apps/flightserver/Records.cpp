// SPDX-License-Identifier: MIT
#include "Records.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

namespace
{
constexpr int BadRequest = 400;
constexpr int TooLarge = 413;
constexpr int NoRoom = 503;

constexpr std::size_t MaxRecord = 4 << 20;
constexpr std::size_t MaxId = 1024;
constexpr std::size_t RoomStep = 512 / sizeof(Record); // what a deque takes at a time
constexpr std::size_t StepBytes = 512 + 32;            // with what the allocator and the deque add

// A parser keeps what its largest text needed, several times that text's size.
constexpr std::size_t SmallRecord = 64 << 10;

int hexDigit(char character)
{
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    const char lower = static_cast<char>(character | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

struct Text {
    char* begin;
    char* end;
};

// Decodes "+" and "%XX" where they stand.
Text decodeFormText(Text text)
{
    const auto encoded = [](char character) { return character == '%' || character == '+'; };
    char* out = std::find_if(text.begin, text.end, encoded);
    for (const char* in = out; in != text.end; ++in) {
        if (*in != '%') {
            *out++ = *in == '+' ? ' ' : *in;
            continue;
        }
        const int high = text.end - in > 2 ? hexDigit(in[1]) : -1;
        const int low = high >= 0 ? hexDigit(in[2]) : -1;
        if (low < 0) {
            throw Refusal(BadRequest, "the form holds a \"%\" without two hexadecimal digits");
        }
        *out++ = static_cast<char>(high * 16 + low);
        in += 2;
    }
    return {text.begin, out};
}

// The encoded value of the first field with that name.
std::optional<Text> findField(char* pair, char* const end, std::string_view name)
{
    while (pair < end) {
        char* const pairEnd = std::find(pair, end, '&');
        const auto pairLength = static_cast<std::size_t>(pairEnd - pair);
        if (pairLength > name.size() && pair[name.size()] == '=' &&
            std::memcmp(pair, name.data(), name.size()) == 0) {
            return Text{pair + name.size() + 1, pairEnd};
        }
        pair = pairEnd + 1;
    }
    return std::nullopt;
}

Text formValue(Body& body, std::string_view name)
{
    const std::optional<Text> value = findField(body.data(), body.data() + body.size(), name);
    if (!value) {
        throw Refusal(BadRequest, "the form has no field \"" + std::string(name) + "\"");
    }
    return *value;
}

bool isBlank(char character)
{
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

char* skipBlanks(char* at, const char* end)
{
    while (at != end && isBlank(*at)) {
        ++at;
    }
    return at;
}

// Behind the object that begins here, whatever stands in it: the parser looks at that. nullptr: it does not
// end.
char* objectEnd(char* at, const char* end)
{
    static constexpr auto Special = [] {
        std::array<bool, 256> special{};
        for (const char character : std::string_view(R"("{}[])")) {
            special[static_cast<unsigned char>(character)] = true;
        }
        return special;
    }();
    std::size_t depth = 0;
    for (; at != end; ++at) {
        if (!Special[static_cast<unsigned char>(*at)]) {
            continue;
        }
        if (*at == '"') {
            for (++at; at != end && *at != '"'; ++at) {
                at += *at == '\\' && at + 1 != end ? 1 : 0;
            }
            if (at == end) {
                return nullptr;
            }
        } else if (*at == '{' || *at == '[') {
            ++depth;
        } else if (--depth == 0) {
            return at + 1;
        }
    }
    return nullptr;
}

[[noreturn]] void refuseJson(const char* why)
{
    throw Refusal(BadRequest, std::string("\"data\" is no JSON: ") + why);
}

// Reads the whole object, so that nothing unsound is stored, and hands out its id, which lives in the parser.
std::string_view parseId(simdjson::dom::parser& parser, const char* object, std::size_t length)
{
    simdjson::dom::object members;
    const simdjson::error_code error = parser.parse(object, length, false).get(members);
    if (error == simdjson::INCORRECT_TYPE) {
        throw Refusal(BadRequest, "\"data\" holds something that is no object");
    }
    if (error != simdjson::SUCCESS) {
        refuseJson(simdjson::error_message(error));
    }
    std::string_view id;
    if (members["id"].get(id) != simdjson::SUCCESS || id.empty()) {
        throw Refusal(BadRequest, "an object has no text member \"id\"");
    }
    return id;
}

std::string fromLatin1(std::string_view text)
{
    std::string utf8;
    for (const char character : text) {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x80) {
            utf8 += character;
        } else {
            utf8 += static_cast<char>(0xC0 | code >> 6);
            utf8 += static_cast<char>(0x80 | (code & 0x3F));
        }
    }
    return utf8;
}

void checkKey(std::string_view key, const char* name)
{
    if (key.size() > MaxId || key.find('\0') != std::string_view::npos) {
        throw Refusal(BadRequest, std::string(name) + " is too long or holds a zero character");
    }
}
} // namespace

const Endpoint* findEndpoint(std::string_view path)
{
    const auto* const found =
        std::find_if(std::begin(Endpoints), std::end(Endpoints),
                     [&path](const Endpoint& endpoint) { return path == endpoint.path; });
    return found == std::end(Endpoints) ? nullptr : found;
}

Body::Body(std::size_t size) : m_bytes(new char[size + simdjson::SIMDJSON_PADDING]), m_size(size) {}

Batch::Batch(const Endpoint& endpoint, Body body, Bound::Reservation room)
    : m_endpoint(&endpoint), m_body(std::move(body)), m_room(std::move(room))
{
    Text data = formValue(m_body, "data");
    if (findField(data.end, m_body.data() + m_body.size(), "data")) {
        throw Refusal(BadRequest, "the form has two fields \"data\"");
    }
    if (!endpoint.isBatch) {
        data = decodeFormText(data);
        readMission(data.begin, data.end);
        return;
    }
    const Text mission = decodeFormText(formValue(m_body, "flight_mission_id"));
    data = decodeFormText(data); // after the fields have been told apart: it may hold any character now
    m_mission = {mission.begin, static_cast<std::size_t>(mission.end - mission.begin)};
    if (m_mission.empty()) {
        throw Refusal(BadRequest, "\"flight_mission_id\" is empty");
    }
    if (!simdjson::validate_utf8(m_mission.data(), m_mission.size())) {
        m_mission = m_unescaped.emplace_back(fromLatin1(m_mission)); // as clients write a form
    }
    checkKey(m_mission, "\"flight_mission_id\"");
    readArray(data.begin, data.end);
}

void Batch::readMission(char* at, const char* end)
{
    at = skipBlanks(at, end);
    char* const behind = at != end && *at == '{' ? objectEnd(at, end) : nullptr;
    if (behind == nullptr || skipBlanks(behind, end) != end) {
        refuseJson("one object was expected");
    }
    add(at, static_cast<std::size_t>(behind - at));
    m_mission = m_records.front().id();
}

void Batch::readArray(char* at, const char* end)
{
    at = skipBlanks(at, end);
    if (at == end || *at != '[') {
        throw Refusal(BadRequest, "\"data\" is no JSON array");
    }
    at = skipBlanks(at + 1, end);
    const bool isEmpty = at != end && *at == ']';
    while (!isEmpty) {
        if (at != end && *at != '{') {
            throw Refusal(BadRequest, "\"data\" holds something that is no object");
        }
        char* const behind = at != end ? objectEnd(at, end) : nullptr;
        if (behind == nullptr) {
            refuseJson("it ends too early");
        }
        add(at, static_cast<std::size_t>(behind - at));
        at = skipBlanks(behind, end);
        if (at != end && *at == ']') {
            break;
        }
        if (at == end || *at != ',') {
            refuseJson("a comma or the end of the array was expected");
        }
        at = skipBlanks(at + 1, end);
    }
    if (skipBlanks(at + 1, end) != end) {
        refuseJson("something follows the array");
    }
}

void Batch::add(const char* object, std::size_t length)
{
    if (length > MaxRecord) {
        throw Refusal(TooLarge, "a row is longer than 4 MiB");
    }
    if (m_records.size() % RoomStep == 0 && !m_room.grow(StepBytes)) {
        throw m_room.couldGrow(StepBytes) ? Refusal(NoRoom, "no room for the rows now")
                                          : Refusal(TooLarge, "more rows than this server has memory for");
    }
    // One parser a thread for all the small texts; a large one's goes with it.
    static thread_local simdjson::dom::parser smallParser;
    std::optional<simdjson::dom::parser> largeParser;
    simdjson::dom::parser& parser = length > SmallRecord ? largeParser.emplace() : smallParser;
    const std::string_view id = keepId(parseId(parser, object, length), {object, length});
    m_records.push_back(
        {object, id.data(), static_cast<std::uint32_t>(length), static_cast<std::uint32_t>(id.size())});
}

// Mostly the id stands in the body just as it is.
std::string_view Batch::keepId(std::string_view id, std::string_view object)
{
    checkKey(id, "an id");
    const std::size_t at = object.find(id);
    return at != std::string_view::npos ? object.substr(at, id.size())
                                        : std::string_view(m_unescaped.emplace_back(id));
}
