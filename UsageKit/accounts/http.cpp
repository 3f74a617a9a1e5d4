#include "accounts/http.h"

#include "accounts/curl_library.h"
#include "core/redact.h"
#include "core/text.h"

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>

namespace usagekit::HTTP {

namespace {

constexpr size_t kDescribedBodyCharacters = 240;
// An answer larger than this is not a provider's usage report; stop reading it.
constexpr size_t kMaximumBody = 64u << 20;
// A query side may keep these besides unreserved characters; "&", "+", "=" and "?" are
// encoded so that a value can never split or end a pair.
constexpr std::string_view kQueryPairExtra = "!$'()*,;:@/";

// One share handle for the process: connections, DNS answers and TLS sessions are reused
// across requests and threads. libcurl calls back into these locks around shared data.
class Shared {
  public:
    static Shared& instance() {
        // Never destroyed: a request on another thread may outlive static destruction.
        static Shared* shared = new Shared;
        return *shared;
    }
    CURLSH* handle() const { return m_share; }

  private:
    Shared() {
        const CurlLibrary& lib = curl();
        lib.global_init(CURL_GLOBAL_DEFAULT);
        m_share = lib.share_init();
        lib.share_setopt(m_share, CURLSHOPT_LOCKFUNC, &Shared::lock);
        lib.share_setopt(m_share, CURLSHOPT_UNLOCKFUNC, &Shared::unlock);
        lib.share_setopt(m_share, CURLSHOPT_USERDATA, this);
        lib.share_setopt(m_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_CONNECT);
        lib.share_setopt(m_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
        lib.share_setopt(m_share, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    static void lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
        static_cast<Shared*>(self)->mutexFor(data).lock();
    }
    static void unlock(CURL*, curl_lock_data data, void* self) {
        static_cast<Shared*>(self)->mutexFor(data).unlock();
    }
    std::mutex& mutexFor(curl_lock_data data) {
        return m_locks[static_cast<size_t>(data) % m_locks.size()];
    }

    CURLSH* m_share = nullptr;
    std::array<std::mutex, CURL_LOCK_DATA_LAST> m_locks;
};

struct URLParts {
    std::string scheme;
    std::string host;
};

using URLHandle = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::optional<std::string> part(CURLU* handle, CURLUPart which) {
    char* text = nullptr;
    if (curl().url_get(handle, which, &text, 0) != CURLUE_OK || !text) return std::nullopt;
    std::string out(text);
    curl().free(text);
    return out;
}

URLHandle parsedURL(const std::string& text) {
    const CurlLibrary& lib = curl();
    URLHandle handle(lib.url(), lib.url_cleanup);
    if (!handle || lib.url_set(handle.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK)
        return URLHandle(nullptr, lib.url_cleanup);
    return handle;
}

std::optional<URLParts> partsOf(const std::string& text) {
    URLHandle handle = parsedURL(text);
    if (!handle) return std::nullopt;
    auto scheme = part(handle.get(), CURLUPART_SCHEME);
    auto host = part(handle.get(), CURLUPART_HOST);
    if (!scheme || !host || host->empty()) return std::nullopt;
    return URLParts{Text::lowercased(*scheme), Text::lowercased(*host)};
}

bool isLoopback(const std::string& host) {
    return host == "127.0.0.1" || host == "[::1]" || host == "localhost";
}

// Refuses, before anything is sent, every address where a key could travel in clear text.
void checkAddress(const std::string& url) {
    auto parts = partsOf(url);
    if (!parts) throw TransportError("The address of the service is not a valid URL.");
    if (parts->scheme == "https") return;
    if (parts->scheme == "http" && isLoopback(parts->host)) return;
    throw TransportError("Refused to send a request to " + parts->host +
                         " without encryption; the address must begin with https://.");
}

bool sameName(std::string_view a, std::string_view b) {
    return Text::lowercased(a) == Text::lowercased(b);
}

// A later header of the same name replaces the earlier one in its place.
void setHeader(Headers& headers, const std::string& name, const std::string& value) {
    for (auto& header : headers) {
        if (sameName(header.first, name)) {
            header.second = value;
            return;
        }
    }
    headers.emplace_back(name, value);
}

bool hasHeader(const Headers& headers, std::string_view name) {
    for (auto& header : headers)
        if (sameName(header.first, name)) return true;
    return false;
}

using HeaderList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

HeaderList headerList(const Request& request) {
    Headers merged;
    for (auto& [name, value] : request.headers)
        setHeader(merged, name, value);
    const CurlLibrary& lib = curl();
    HeaderList list(nullptr, lib.slist_free_all);
    auto append = [&](const std::string& line) {
        curl_slist* grown = lib.slist_append(list.get(), line.c_str());
        if (!grown) throw TransportError("The request could not be prepared.");
        list.release();
        list.reset(grown);
    };
    for (auto& [name, value] : merged) {
        // A line break would let a value write headers of its own.
        if (name.empty() || name.find_first_of(":\r\n") != std::string::npos ||
            value.find_first_of("\r\n") != std::string::npos || value.find('\0') != value.npos)
            throw TransportError("A request header holds characters that cannot be sent.");
        // "Name;" is libcurl's way to send a header whose value is empty.
        append(value.empty() ? name + ";" : name + ": " + value);
    }
    // libcurl adds these on its own; a request carries only the headers its caller chose.
    if (!hasHeader(merged, "Accept")) append("Accept:");
    if (!hasHeader(merged, "Content-Type")) append("Content-Type:");
    append("Expect:");
    return list;
}

std::string secondsText(double seconds) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", seconds);
    return buffer;
}

std::string hostOf(const Request& request) {
    auto parts = partsOf(request.url);
    return parts ? parts->host : std::string("the service");
}

// `seconds`: the time-out the request was given.
std::string describe(CURLcode code, const Request& request, double seconds) {
    const std::string host = hostOf(request);
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return "The request to " + host + " timed out after " + secondsText(seconds) +
                   " seconds.";
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
            return "Could not find the server " + host + "; check the network connection.";
        case CURLE_COULDNT_CONNECT:
            return "Could not connect to " + host + ".";
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ENGINE_INITFAILED:
            return "The secure connection to " + host + " failed.";
        case CURLE_GOT_NOTHING:
        case CURLE_RECV_ERROR:
        case CURLE_SEND_ERROR:
        case CURLE_PARTIAL_FILE:
        case CURLE_HTTP2:
        case CURLE_HTTP2_STREAM:
        case CURLE_HTTP3:
            return "The connection to " + host + " was lost before the answer arrived.";
        case CURLE_WRITE_ERROR:
        case CURLE_FILESIZE_EXCEEDED:
            return "The answer from " + host + " was too large.";
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_UNSUPPORTED_PROTOCOL:
            return "The answer from " + host + " was not an HTTP answer.";
        case CURLE_OUT_OF_MEMORY:
            return "There was not enough memory to complete the request.";
        default:
            return "The request to " + host + " could not be completed.";
    }
}

size_t collect(char* data, size_t size, size_t count, void* userdata) {
    auto* body = static_cast<std::string*>(userdata);
    const size_t bytes = size * count;
    if (body->size() + bytes > kMaximumBody) return 0;  // libcurl ends the transfer
    body->append(data, bytes);
    return bytes;
}

JSONDocument nullDocument() {
    return std::move(*JSONDocument::parse("null"));
}

void setOption(CURL* easy, CURLoption option, auto value) {
    if (curl().easy_setopt(easy, option, value) != CURLE_OK)
        throw TransportError("The request could not be prepared.");
}

std::string encodedPairs(const Query& pairs) {
    std::string out;
    for (auto& [name, value] : pairs) {
        if (!out.empty()) out += '&';
        out += Text::percentEncode(name, kQueryPairExtra) + "=" +
               Text::percentEncode(value, kQueryPairExtra);
    }
    return out;
}

// An error answer may echo the request, headers included: what we sent is cut out of it.
JSONDocument checked(Response response, const Headers& sent) {
    if (response.status < 200 || response.status > 299) {
        std::vector<std::string> values;
        for (const auto& header : sent)
            values.push_back(header.second);
        throw Err(response.status, Redact::secrets(response.body, values));
    }
    return std::move(response.json);
}

}  // namespace

Err::Err(int64_t status_, std::string body_) : status(status_), body(Redact::secrets(body_)) {
    if (status == 401 || status == 403)
        m_description = "Rejected the key (HTTP " + std::to_string(status) + ").";
    else
        m_description = "HTTP " + std::to_string(status) + " \u2014 " +
                        Text::firstCharacters(body, kDescribedBodyCharacters);
}

namespace {
thread_local std::optional<std::chrono::steady_clock::time_point> currentDeadline;
}

Deadline::Deadline(std::chrono::steady_clock::time_point at) : m_outer(currentDeadline) {
    currentDeadline = m_outer ? std::min(*m_outer, at) : at;
}

Deadline::~Deadline() {
    currentDeadline = m_outer;
}

std::optional<std::chrono::steady_clock::time_point> Deadline::current() {
    return currentDeadline;
}

Response sendRaw(const Request& request) {
    checkAddress(request.url);
    Shared& shared = Shared::instance();
    const CurlLibrary& lib = curl();
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(lib.easy_init(), lib.easy_cleanup);
    if (!handle) throw TransportError("The request could not be prepared.");
    CURL* easy = handle.get();
    HeaderList headers = headerList(request);
    std::string received;

    setOption(easy, CURLOPT_SHARE, shared.handle());
    setOption(easy, CURLOPT_URL, request.url.c_str());
    setOption(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    setOption(easy, CURLOPT_FOLLOWLOCATION, 0L);
    // A proxy from the environment is honoured, but never for this computer.
    setOption(easy, CURLOPT_NOPROXY, "localhost,127.0.0.1,::1");
    setOption(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    setOption(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    // Signals cannot interrupt a resolver on another thread; time-outs still hold.
    setOption(easy, CURLOPT_NOSIGNAL, 1L);
    double seconds = std::isfinite(request.timeout) && request.timeout > 0
                         ? std::min(request.timeout, 24.0 * 3600)
                         : 30.0;
    if (const auto deadline = Deadline::current()) {
        const double left =
            std::chrono::duration<double>(*deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0.001)
            throw TransportError("The request to " + hostOf(request) +
                                 " was not made: there was no time left for it.");
        // Rounded up to a tenth of a second, which reads better in a problem line.
        seconds = std::min(seconds, std::ceil(left * 10) / 10);
    }
    setOption(easy, CURLOPT_TIMEOUT_MS, std::max(1L, std::lround(seconds * 1000)));
    setOption(easy, CURLOPT_HTTPHEADER, headers.get());
    setOption(easy, CURLOPT_WRITEFUNCTION, &collect);
    setOption(easy, CURLOPT_WRITEDATA, &received);
    if (request.method == "GET") {
        setOption(easy, CURLOPT_HTTPGET, 1L);
    } else if (request.method == "POST") {
        setOption(easy, CURLOPT_POST, 1L);
    } else {
        setOption(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
    }
    if (request.body) {
        setOption(easy, CURLOPT_POSTFIELDS, request.body->data());
        setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
    } else if (request.method == "POST") {
        setOption(easy, CURLOPT_POSTFIELDS, "");
        setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(0));
    }

    CURLcode code = lib.easy_perform(easy);
    if (code != CURLE_OK) throw TransportError(describe(code, request, seconds));

    Response response;
    long status = 0;
    lib.easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
    response.status = status;
    if (simdjson::validate_utf8(received.data(), received.size()))
        response.body = std::move(received);
    auto document = JSONDocument::parse(response.body);
    response.json = document ? std::move(*document) : nullDocument();
    return response;
}

JSONDocument get(const std::string& url, const Headers& headers, double timeout) {
    return checked(sendRaw(Request{"GET", url, headers, std::nullopt, timeout}), headers);
}

JSONDocument post(const std::string& url, const Headers& headers,
                  const std::optional<std::string>& jsonBody, double timeout) {
    Request request{"POST", url, headers, jsonBody, timeout};
    if (jsonBody) setHeader(request.headers, "Content-Type", "application/json");
    return checked(sendRaw(request), request.headers);
}

std::pair<int64_t, JSONDocument> postJSON(const std::string& url, const std::string& jsonBody,
                                          double timeout) {
    Response response =
        sendRaw(Request{"POST",
                        url,
                        {{"Accept", "application/json"}, {"Content-Type", "application/json"}},
                        jsonBody,
                        timeout});
    return {response.status, std::move(response.json)};
}

std::pair<int64_t, JSONDocument> postForm(const std::string& url, const Query& fields,
                                          double timeout) {
    const std::string body = encodedPairs(fields);
    Response response = sendRaw(Request{
        "POST",
        url,
        {{"Accept", "application/json"}, {"Content-Type", "application/x-www-form-urlencoded"}},
        body,
        timeout});
    return {response.status, std::move(response.json)};
}

std::optional<std::string> url(const std::string& base, const Query& query) {
    if (!partsOf(base)) return std::nullopt;
    // Built from the caller's text rather than libcurl's rewrite of it, which would
    // change the spelling of escapes the caller chose.
    const size_t queryStart = base.find_first_of("?#");
    const size_t fragmentStart = base.find('#');
    std::string out = base.substr(0, queryStart);
    if (!query.empty()) {
        out += '?';
        out += encodedPairs(query);
    }
    if (fragmentStart != std::string::npos) out += base.substr(fragmentStart);
    return out;
}

}  // namespace usagekit::HTTP
