// SPDX-License-Identifier: MIT
#pragma once

#include "Ledger.h"

#include <functional>
#include <string>

// A whole request of somebody who may send.
struct Request {
    const Endpoint* endpoint;
    Sender sender;
    Body body;
    Bound::Reservation room;
};

struct Answer {
    // A cut one announces more than it sends; a silent one is never sent.
    enum class Ending { Whole, Cut, Silent };

    int http = 200;
    int status = 0; // of the JSON, for counters and log
    std::string content;
    const char* type = "application/json";
    std::size_t rows = 0;
    Ending ending = Ending::Whole;
};

// The JSON answer, with its status as that of HTTP as well where it is one.
Answer makeAnswer(int status, const std::string& message);

// To be called once, on the thread that handed out the request.
using Reply = std::function<void(Answer)>;

class Handler
{
public:
    Handler() = default;
    Handler(const Handler&) = delete;
    Handler& operator=(const Handler&) = delete;
    virtual ~Handler() = default;
    virtual void handle(Request request, Reply reply) = 0;
};
