// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

class Progress;
class TargetFile;

/// One GET request, redirects included, whose body goes into the target file.
class Transfer
{
public:
    enum class Begin { AtZero, AtFileEnd };

    Transfer(const std::string& url, TargetFile& target, Progress& progress, Begin begin);

    /// True: the file is whole. False: the bytes in it cannot be continued, it takes a transfer that begins
    /// at zero. Anything else is thrown, in words that repeat neither the URL nor the server.
    bool run();

private:
    enum class Verdict { Undecided, StoreBody, AlreadyWhole, StartOver };

    template<typename Value>
    void set(CURLoption option, Value value);
    void setOptions();
    void setRequestHeaders();
    void addHeader(const std::string& line);
    std::string header(const char* name) const;
    std::string validator() const;
    Verdict judge();
    Verdict judgePart();
    void take(const char* data, std::size_t size);
    std::string explain(CURLcode code) const;

    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* self) noexcept;
    static int onRequest(void* self, char*, char*, int, int) noexcept;

    const std::string& m_url;
    TargetFile& m_target;
    Progress& m_progress;
    const std::int64_t m_offset;
    bool m_conditional = false; // the server was asked for a part only of the version that is known

    std::unique_ptr<CURL, void (*)(CURL*)> m_curl;
    std::unique_ptr<curl_slist, void (*)(curl_slist*)> m_headers;
    Verdict m_verdict = Verdict::Undecided;
    std::int64_t m_total = -1;
    long m_requests = 0;
    std::exception_ptr m_failure;
};
