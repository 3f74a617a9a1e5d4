// One request to a provider's web interface: the status checked, the answer parsed as
// JSON. All calls are synchronous, may run on any thread at once, and share one pool of
// connections, DNS answers and TLS sessions.
//
// Keys travel in headers, so a request goes out only over HTTPS (with certificate
// verification) or plain HTTP to this computer (127.0.0.1, ::1, localhost); anything else
// is refused before a byte is sent. Redirects are not followed, so a key header never
// reaches a host the caller did not name.
//
// libcurl is opened at the first call (accounts/curl_library.h); where it is missing, every
// call, url() included, throws TransportError saying so.
#pragma once

#include "core/json.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace usagekit::HTTP {

// In order; a later header of the same name (compared without regard to case) replaces
// the earlier one.
using Headers = std::vector<std::pair<std::string, std::string>>;
using Query = std::vector<std::pair<std::string, std::string>>;

// A non-2xx answer from get() or post(). status 0: the answer was not an HTTP answer.
// what() is the text the user sees: "Rejected the key (HTTP 401)." for 401 and 403,
// otherwise "HTTP 500 — " followed by the first 240 characters of the body. Credentials in
// the body (what was sent, or anything shaped like a key) are cut out before it is kept.
struct Err : std::exception {
    Err(int64_t status, std::string body);
    const char* what() const noexcept override { return m_description.c_str(); }

    int64_t status;
    std::string body;  // the whole answer; empty when it was not UTF-8

  private:
    std::string m_description;
};

// The request never got an HTTP answer (time-out, no connection, TLS failure, refused
// address). what() is a short sentence for the user, never a library error code.
struct TransportError : std::runtime_error {
    using runtime_error::runtime_error;
};

// A time by which every request this thread makes while the object lives must be done:
// each request's own time-out is cut to what is left, and one made after the deadline
// fails at once as timed out. So a caller bounds a whole series of requests it cannot see
// into (a provider's paged reads). Nested, the earlier deadline holds. One thread's own.
class Deadline {
  public:
    explicit Deadline(std::chrono::steady_clock::time_point at);
    ~Deadline();
    Deadline(const Deadline&) = delete;
    Deadline& operator=(const Deadline&) = delete;

    // The deadline that holds on this thread now, if any.
    static std::optional<std::chrono::steady_clock::time_point> current();

  private:
    std::optional<std::chrono::steady_clock::time_point> m_outer;
};

struct Request {
    std::string method = "GET";
    std::string url;
    Headers headers;
    std::optional<std::string> body;  // sent as is; absent: no body at all
    double timeout = 30;              // seconds, for the whole exchange
};

struct Response {
    int64_t status = 0;
    JSONDocument json;  // the JSON null value when the body is not JSON (or not UTF-8)
    std::string body;   // empty when not UTF-8
};

// Sends and waits for the whole answer. Any status is returned; throws TransportError only.
Response sendRaw(const Request& request);

// GET; a status outside 200...299 throws Err, transport failures TransportError. A 2xx
// answer that is not JSON (a 204, an empty body) gives the null value.
JSONDocument get(const std::string& url, const Headers& headers, double timeout);
// POST of compact JSON text; with a body, "Content-Type: application/json" is set after
// the caller's headers. Without one, there is no body and no content type. Throws as get().
JSONDocument post(const std::string& url, const Headers& headers,
                  const std::optional<std::string>& jsonBody, double timeout);
// POST with "Accept" and "Content-Type" set to application/json. The status is returned
// unchecked; throws TransportError only.
std::pair<int64_t, JSONDocument> postJSON(const std::string& url, const std::string& jsonBody,
                                          double timeout);
// POST of name=value pairs joined by "&" in the given order, each side percent-encoded
// for a query with "&", "+", "=" and "?" encoded as well. Status unchecked; throws
// TransportError only.
std::pair<int64_t, JSONDocument> postForm(const std::string& url, const Query& fields,
                                          double timeout);

// `base` with its query replaced by `query`, pairs in the given order (names may repeat),
// each side percent-encoded. An empty list leaves no query. Absent when `base` is not a
// URL with a scheme and a host.
std::optional<std::string> url(const std::string& base, const Query& query);

}  // namespace usagekit::HTTP
