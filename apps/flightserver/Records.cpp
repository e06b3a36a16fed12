// SPDX-License-Identifier: MIT
#include "Records.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <cctype>
#include <string_view>

namespace
{
constexpr Endpoint Endpoints[] = {
    {"/flight/upload", "flight_mission", false},
    {"/flight/posupload", "pos_data", true},
    {"/flight/uasstatusupload", "uas_status", true},
    {"/flight/detailupload", "flight_monitor_detail_log", true},
    {"/flight/upload4video", "flight_video_mission", false},
};
constexpr int BadRequest = 400;

bool isHexDigit(char character)
{
    return std::isxdigit(static_cast<unsigned char>(character)) != 0;
}

// Qt's decoder turns a stray "%" into some other character, which would hide a sender's fault.
void checkEscapes(std::string_view text)
{
    for (std::size_t at = text.find('%'); at != std::string_view::npos; at = text.find('%', at + 1)) {
        if (at + 2 >= text.size() || !isHexDigit(text[at + 1]) || !isHexDigit(text[at + 2])) {
            throw Refusal(BadRequest, "the form holds a \"%\" without two hexadecimal digits");
        }
    }
}

QByteArray decodeFormText(std::string_view text)
{
    checkEscapes(text);
    QByteArray bytes(text.data(), static_cast<int>(text.size()));
    return QByteArray::fromPercentEncoding(bytes.replace('+', ' '));
}

// The value of the first field with that name. httplib's own parser is of no use here: it trims blanks and
// keeps only what follows the last "=" of a pair.
QByteArray formValue(std::string_view body, std::string_view name)
{
    while (!body.empty()) {
        const std::string_view pair = body.substr(0, body.find('&'));
        body.remove_prefix(std::min(pair.size() + 1, body.size()));
        const std::size_t equals = pair.find('=');
        if (equals != std::string_view::npos && pair.substr(0, equals) == name) {
            return decodeFormText(pair.substr(equals + 1));
        }
    }
    throw Refusal(BadRequest, "the form has no field \"" + std::string(name) + "\"");
}

QJsonDocument parseJson(const QByteArray& text)
{
    QJsonParseError error{};
    QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError) {
        throw Refusal(BadRequest, "\"data\" is no JSON: " + error.errorString().toStdString() + " at byte " +
                                      std::to_string(error.offset));
    }
    return document;
}

Record toRecord(const QJsonValue& value)
{
    if (!value.isObject()) {
        throw Refusal(BadRequest, "\"data\" holds something that is no object");
    }
    const QJsonObject object = value.toObject();
    QByteArray id = object.value(QLatin1String("id")).toString().toUtf8();
    if (id.isEmpty()) {
        throw Refusal(BadRequest, "an object has no text member \"id\"");
    }
    return {std::move(id), QJsonDocument(object).toJson(QJsonDocument::Compact)};
}
} // namespace

const Endpoint* findEndpoint(const std::string& path)
{
    const auto* const found =
        std::find_if(std::begin(Endpoints), std::end(Endpoints),
                     [&path](const Endpoint& endpoint) { return path == endpoint.path; });
    return found == std::end(Endpoints) ? nullptr : found;
}

Batch parseBatch(const Endpoint& endpoint, const std::string& body)
{
    Batch batch;
    const QJsonDocument document = parseJson(formValue(body, "data"));
    if (!endpoint.isBatch) {
        batch.records.push_back(toRecord(document.object()));
        batch.mission = batch.records.front().id;
        return batch;
    }
    batch.mission = formValue(body, "flight_mission_id");
    if (batch.mission.isEmpty()) {
        throw Refusal(BadRequest, "\"flight_mission_id\" is empty");
    }
    if (!document.isArray()) {
        throw Refusal(BadRequest, "\"data\" is no JSON array");
    }
    const QJsonArray array = document.array();
    batch.records.reserve(static_cast<std::size_t>(array.size()));
    for (const QJsonValue& value : array) {
        batch.records.push_back(toRecord(value));
    }
    return batch;
}
