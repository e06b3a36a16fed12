// SPDX-License-Identifier: MIT
#include "Transfer.h"

#include "Progress.h"
#include "TargetFile.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>

namespace
{

constexpr long MaxRedirects = 10;
constexpr long ConnectTimeoutSeconds = 20;
constexpr long StallSeconds = 60;
constexpr long MinBytesPerSecond = 1;

// The caller tries again when it reads one of these two on standard error.
const char* const BadLength = "bad content length";
const char* const BrokenConnection = "read tcp: ";

struct ContentRange {
    long long first = -1;
    long long last = -1;
    long long total = -1;
};

// "bytes FIRST-LAST/TOTAL" of a part, or "bytes */TOTAL" of a refusal; what is not told stays -1.
ContentRange parseContentRange(const std::string& text)
{
    ContentRange range;
    if (std::sscanf(text.c_str(), "bytes */%18lld", &range.total) != 1) {
        std::sscanf(text.c_str(), "bytes %18lld-%18lld/%18lld", &range.first, &range.last, &range.total);
    }
    return range;
}

} // namespace

Transfer::Transfer(const std::string& url, TargetFile& target, Progress& progress, Begin begin)
    : m_url(url)
    , m_target(target)
    , m_progress(progress)
    , m_offset(begin == Begin::AtFileEnd ? target.size() : 0)
    , m_curl(curl_easy_init(), &curl_easy_cleanup)
    , m_headers(nullptr, &curl_slist_free_all)
{
    if (!m_curl) {
        throw std::runtime_error("cannot start libcurl");
    }
    setOptions();
    setRequestHeaders();
}

template<typename Value>
void Transfer::set(CURLoption option, Value value)
{
    const CURLcode code = curl_easy_setopt(m_curl.get(), option, value);
    if (code != CURLE_OK) {
        throw std::runtime_error(std::string("libcurl refuses an option: ") + curl_easy_strerror(code));
    }
}

void Transfer::setOptions()
{
    set(CURLOPT_URL, m_url.c_str());
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 1L);
    set(CURLOPT_MAXREDIRS, MaxRedirects);
    set(CURLOPT_FORBID_REUSE, 1L); // a kept connection may be closed just as the next request goes out
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_FAILONERROR, 1L);
    set(CURLOPT_CONNECTTIMEOUT, ConnectTimeoutSeconds);
    set(CURLOPT_LOW_SPEED_LIMIT, MinBytesPerSecond);
    set(CURLOPT_LOW_SPEED_TIME, StallSeconds);
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_USERAGENT, "grabdownloader/" KV_VERSION);
    set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
    set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    set(CURLOPT_PREREQFUNCTION, &Transfer::onRequest);
    set(CURLOPT_PREREQDATA, static_cast<void*>(this));
    // As every OpenSSL program does, for servers with a certificate of the house.
    if (const char* certificates = std::getenv("SSL_CERT_FILE")) {
        set(CURLOPT_CAINFO, certificates);
    }
}

void Transfer::setRequestHeaders()
{
    // Sizes and ranges of an encoded body are not those of the file.
    addHeader("Accept-Encoding: identity");
    if (m_offset > 0) {
        set(CURLOPT_RANGE, (std::to_string(m_offset) + '-').c_str());
        const std::string& known = m_target.validator();
        if (!known.empty() && known.rfind("W/", 0) != 0) { // a weak one never matches there
            addHeader("If-Range: " + known);
            m_conditional = true;
        }
    }
    set(CURLOPT_HTTPHEADER, m_headers.get());
}

void Transfer::addHeader(const std::string& line)
{
    curl_slist* extended = curl_slist_append(m_headers.get(), line.c_str());
    if (!extended) {
        throw std::bad_alloc();
    }
    static_cast<void>(m_headers.release()); // the extended list begins with it
    m_headers.reset(extended);
}

bool Transfer::run()
{
    const CURLcode code = curl_easy_perform(m_curl.get());
    if (m_failure) {
        std::rethrow_exception(m_failure);
    }
    // Without a body there was no occasion to judge the answer.
    if (m_verdict == Verdict::Undecided && (code == CURLE_OK || code == CURLE_HTTP_RETURNED_ERROR)) {
        m_verdict = judge();
    }
    if (m_verdict == Verdict::StartOver) {
        return false;
    }
    if (m_verdict == Verdict::AlreadyWhole) {
        return true;
    }
    if (code != CURLE_OK) {
        throw std::runtime_error(explain(code));
    }
    if (m_total >= 0 && m_target.size() != m_total) {
        throw std::runtime_error(BadLength);
    }
    return true;
}

std::size_t Transfer::onBody(char* data, std::size_t, std::size_t size, void* self) noexcept
{
    auto* transfer = static_cast<Transfer*>(self);
    try {
        if (transfer->m_verdict == Verdict::Undecided) {
            transfer->m_verdict = transfer->judge();
        }
        if (transfer->m_verdict != Verdict::StoreBody) {
            return CURL_WRITEFUNC_ERROR;
        }
        transfer->take(data, size);
        return size;
    } catch (...) {
        transfer->m_failure = std::current_exception();
        return CURL_WRITEFUNC_ERROR;
    }
}

int Transfer::onRequest(void* self, char*, char*, int, int) noexcept
{
    ++static_cast<Transfer*>(self)->m_requests;
    return CURL_PREREQFUNC_OK;
}

// Decides by the final answer's status and header fields what its body is.
Transfer::Verdict Transfer::judge()
{
    long status = 0;
    curl_easy_getinfo(m_curl.get(), CURLINFO_RESPONSE_CODE, &status);
    if (status == 200) {
        curl_off_t length = -1;
        curl_easy_getinfo(m_curl.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
        m_total = length;
        m_target.restart(m_url, validator(), m_total);
        return Verdict::StoreBody;
    }
    if (m_offset > 0 && status == 206) {
        return judgePart();
    }
    if (m_offset > 0 && status == 416) {
        const bool whole = parseContentRange(header("Content-Range")).total == m_offset;
        return whole && m_target.mayBePartOf(m_offset) ? Verdict::AlreadyWhole : Verdict::StartOver;
    }
    throw std::runtime_error("the server answered with HTTP status " + std::to_string(status));
}

// A part continues the file only if it goes from the file's end to the end of the same resource.
Transfer::Verdict Transfer::judgePart()
{
    const ContentRange range = parseContentRange(header("Content-Range"));
    if (range.first != m_offset || range.last < m_offset || range.last + 1 != range.total) {
        return Verdict::StartOver;
    }
    const std::string known = m_target.validator();
    const std::string now = validator();
    const bool vouched = known.empty() || known == now || (now.empty() && m_conditional);
    if (!vouched || !m_target.mayBePartOf(range.total)) {
        return Verdict::StartOver;
    }
    m_total = range.total;
    return Verdict::StoreBody;
}

void Transfer::take(const char* data, std::size_t size)
{
    if (m_total >= 0 && static_cast<std::int64_t>(size) > m_total - m_target.size()) {
        throw std::runtime_error(BadLength);
    }
    m_target.append(data, size);
    m_progress.update(m_target.size(), m_total);
}

std::string Transfer::header(const char* name) const
{
    curl_header* found = nullptr;
    const CURLHcode code = curl_easy_header(m_curl.get(), name, 0, CURLH_HEADER, -1, &found);
    return code == CURLHE_OK ? found->value : "";
}

std::string Transfer::validator() const
{
    std::string tag = header("ETag");
    if (!tag.empty()) {
        return tag;
    }
    std::string modified = header("Last-Modified");
    const time_t modifiedAt = curl_getdate(modified.c_str(), nullptr);
    // A resource changed in this very second may change once more under the same date.
    const bool settled = modifiedAt != -1 && curl_getdate(header("Date").c_str(), nullptr) > modifiedAt;
    return settled ? modified : std::string();
}

std::string Transfer::explain(CURLcode code) const
{
    long redirects = 0;
    curl_easy_getinfo(m_curl.get(), CURLINFO_REDIRECT_COUNT, &redirects);
    const bool connected = m_requests > redirects;
    switch (code) {
    case CURLE_PARTIAL_FILE:
        return BadLength;
    case CURLE_GOT_NOTHING:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
        return std::string(BrokenConnection) + "the connection broke";
    case CURLE_OPERATION_TIMEDOUT:
        if (connected) {
            return std::string(BrokenConnection) + "no data for " + std::to_string(StallSeconds) + " s";
        }
        return "no connection within " + std::to_string(ConnectTimeoutSeconds) + " s";
    case CURLE_UNSUPPORTED_PROTOCOL:
        return connected ? "the server does not speak HTTP" : "neither an http nor an https URL";
    default:
        return curl_easy_strerror(code);
    }
}
