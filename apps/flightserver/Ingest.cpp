// SPDX-License-Identifier: MIT
#include "Ingest.h"

#include <boost/asio/post.hpp>

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

namespace
{
constexpr std::size_t LargeBody = 1 << 20;
constexpr int Forbidden = 403;
constexpr int BadRequest = 400;
constexpr int ServerError = 500;

Answer answerFor(const Result& result)
{
    switch (result.outcome) {
    case Result::Outcome::Stored:
        return makeAnswer(0, "");
    case Result::Outcome::Revoked:
        return makeAnswer(Forbidden, "the token is no longer valid");
    case Result::Outcome::Refused:
        return makeAnswer(BadRequest, "the ledger does not take it: " + result.words);
    case Result::Outcome::Failed:
        break;
    }
    return makeAnswer(ServerError, "the rows cannot be stored now");
}

// From whatever thread, to that of the connections.
void answerOn(boost::asio::io_context& io, const Reply& reply, Answer answer)
{
    boost::asio::post(io, [reply, answer = std::move(answer)] { reply(answer); });
}
} // namespace

Answer makeAnswer(int status, const std::string& message)
{
    Answer answer;
    answer.status = status;
    if (status == 0) {
        answer.content = R"({"message":"","status":0})";
        return answer;
    }
    answer.http = status >= 200 && status <= 599 ? status : answer.http;
    const QJsonObject object{{QStringLiteral("status"), status},
                             {QStringLiteral("message"), QString::fromStdString(message)}};
    answer.content = QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
    return answer;
}

void Ingest::handle(Request request, Reply reply)
{
    if (request.body.size() < LargeBody) {
        take(std::move(request), reply);
        return;
    }
    boost::asio::post(m_parser, [this, request = std::move(request), reply = std::move(reply)]() mutable {
        take(std::move(request), reply);
    });
}

void Ingest::take(Request request, const Reply& reply)
{
    try {
        Batch batch(*request.endpoint, std::move(request.body), std::move(request.room));
        const std::size_t rows = batch.records().size();
        if (rows == 0) {
            answerOn(m_io, reply, makeAnswer(0, ""));
            return;
        }
        m_ledger.store({request.sender, std::move(batch), [&io = m_io, reply, rows](const Result& result) {
                            Answer answered = answerFor(result);
                            answered.rows = answered.status == 0 ? rows : 0;
                            answerOn(io, reply, std::move(answered));
                        }});
    } catch (const Refusal& refusal) {
        answerOn(m_io, reply, makeAnswer(refusal.status(), refusal.what()));
    } catch (const std::bad_alloc&) {
        answerOn(m_io, reply, makeAnswer(ServerError, "out of memory"));
    }
}
