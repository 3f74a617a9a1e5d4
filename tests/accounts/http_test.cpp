#include "accounts/http.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace usagekit {
namespace {

using testing::failureOf;
using testing::Reply;

class HTTPTest : public ::testing::Test {
  protected:
    HTTPTest() { server.on("/", Reply{}); }
    std::string at(const std::string& path) const { return server.url() + path; }
    testing::FakeProvider server;
};

TEST_F(HTTPTest, ARequestCarriesOnlyTheCallersHeadersTheLastOfEachName) {
    server.on("/x", Reply{200, R"({"data":[{"n":1}]})"});
    auto answer =
        HTTP::get(at("/x"), {{"X-Mode", "a"}, {"Authorization", "b"}, {"x-mode", "c"}}, 5);
    EXPECT_EQ(answer.root()["data"][size_t{0}]["n"].integer(), 1);
    EXPECT_EQ(server.sent(), "GET /x | authorization: b | x-mode: c");  // no Accept of libcurl's
}

TEST_F(HTTPTest, EachAnswerReachesTheCallerAsTheUserShouldSeeIt) {
    std::string accented;
    for (int i = 0; i < 300; ++i)
        accented += "\u00e9";
    const struct {
        Reply reply;
        std::string failure;
    } cases[] = {
        {{204, ""}, ""},  // success without JSON is the null value, not an error
        {{200, "<html>maintenance</html>", "text/html"}, ""},
        {{200, "\xff\xfe{}", "application/octet-stream"}, ""},
        {{401, R"({"error":"invalid x-api-key"})"}, "Err Rejected the key (HTTP 401)."},
        {{403, "<html>Forbidden</html>", "text/html"}, "Err Rejected the key (HTTP 403)."},
        {{500, std::string(1000, 'x'), "text/plain"},
         "Err HTTP 500 \u2014 " + std::string(240, 'x')},
        // 240 characters, not bytes: a cut inside a UTF-8 sequence would garble the text.
        {{502, accented, "text/plain"}, "Err HTTP 502 \u2014 " + accented.substr(0, 480)},
        {{301, "moved", "text/plain"}, "Err HTTP 301 \u2014 moved"},  // not followed with the key
        {{503, "\xff\xfe", "application/octet-stream"}, "Err HTTP 503 \u2014 "},
    };
    for (auto& [reply, failure] : cases) {
        server.on("/a", reply);
        const std::string utf8Body = reply.body.starts_with("\xff") ? "" : reply.body;
        EXPECT_EQ(failureOf([&] { EXPECT_TRUE(HTTP::get(at("/a"), {}, 5).root().isNull()); }),
                  failure);
        EXPECT_EQ(failureOf([&] { HTTP::post(at("/a"), {}, "{}", 5); }), failure);
        HTTP::Response raw = HTTP::sendRaw({"GET", at("/a"), {}, std::nullopt, 5});
        EXPECT_EQ(raw.status, reply.status);  // returned, whatever it is
        EXPECT_EQ(raw.body, utf8Body);
        try {
            HTTP::get(at("/a"), {}, 5);
        } catch (const HTTP::Err& err) {
            EXPECT_EQ(err.status, reply.status);
            EXPECT_EQ(err.body, utf8Body);  // the whole answer
        }
    }
}

TEST_F(HTTPTest, TransportFailuresAreShortSentencesAndASlowAnswerEndsOnTime) {
    server.on("/slow", Reply{200, "{}", "application/json", 30});
    server.on("/drop", Reply{200, std::string(4000, ' '), "application/json", 0, true});
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/slow"), {}, 0.4); }),
              "Transport The request to 127.0.0.1 timed out after 0.4 seconds.");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/drop"), {}, 5); }),
              "Transport The connection to 127.0.0.1 was lost before the answer arrived.");
    const std::string closed = testing::FakeProvider().url();  // nothing listens there now
    EXPECT_EQ(failureOf([&] { HTTP::post(closed, {}, "{}", 5); }),
              "Transport Could not connect to 127.0.0.1.");
}

TEST_F(HTTPTest, NothingIsSentInClearTextBeyondThisComputer) {
    EXPECT_EQ(failureOf([&] { HTTP::get("http://example.com/", {}, 5); }),
              "Transport Refused to send a request to example.com without encryption; the "
              "address must begin with https://.");
    for (const char* address : {"http://10.0.0.1:8080/", "ftp://127.0.0.1/", "file:///etc/hosts",
                                "http://127.0.0.1.example.com/", "not a url"})
        EXPECT_EQ(failureOf([&] { HTTP::get(address, {}, 5); }).rfind("Transport ", 0), 0u)
            << address;
    // A line break in a value would let it write headers of its own.
    EXPECT_NE(failureOf([&] {
                  HTTP::get(at("/"), {{"Authorization", "a\r\nX-Injected: 1"}}, 5);
              }),
              "");
    EXPECT_TRUE(server.requests().empty());
    const std::string port = server.url().substr(server.url().rfind(':'));
    EXPECT_NO_THROW(HTTP::get("http://localhost" + port + "/", {}, 5));
    EXPECT_NO_THROW(HTTP::get("HTTP://127.0.0.1" + port + "/", {}, 5));
}

TEST_F(HTTPTest, PostsSetTheirContentTypesAfterTheCallersHeaders) {
    server.on("/token", Reply{400, R"({"error":"invalid_grant"})"});
    HTTP::post(at("/"), {{"Content-Type", "text/plain"}, {"Connect-Protocol-Version", "1"}},
               R"({"page":1})", 5);
    HTTP::post(at("/"), {}, std::nullopt, 5);
    auto [status, answer] = HTTP::postJSON(at("/token"), "{}", 5);
    EXPECT_EQ(status, 400);  // returned, not thrown
    EXPECT_EQ(answer.root()["error"].string(), "invalid_grant");
    // Pairs in the given order; "&", "=", "+" and "?" can neither split nor end a pair.
    HTTP::postForm(at("/token"), {{"b", "x y"}, {"a", "1&c=2+3?"}, {"b", "/:@"}}, 5);
    EXPECT_EQ(server.sent(),
              R"(POST / {"page":1} | connect-protocol-version: 1 | content-length: 10 | )"
              "content-type: application/json\n"
              "POST / | content-length: 0\n"
              "POST /token {} | accept: application/json | content-length: 2 | content-type: "
              "application/json\n"
              "POST /token b=x%20y&a=1%26c%3D2%2B3%3F&b=/:@ | accept: application/json | "
              "content-length: 32 | content-type: application/x-www-form-urlencoded");
}

TEST_F(HTTPTest, URLSetsTheQueryInOrderAndRejectsWhatIsNotAURL) {
    EXPECT_EQ(
        HTTP::url("https://api.example.com/v1/r",
                  {{"at", "2026-07-01T09:15:02Z"}, {"group_by[]", "model"}, {"n", "a b&c"}}),
        "https://api.example.com/v1/r?at=2026-07-01T09:15:02Z&group_by%5B%5D=model&n=a%20b%26c");
    EXPECT_EQ(HTTP::url("https://api.example.com/v1/x?old=1", {}), "https://api.example.com/v1/x");
    EXPECT_EQ(HTTP::url("https://api.example.com/teams/a b", {}), std::nullopt);
    EXPECT_EQ(HTTP::url("no scheme here", {{"a", "1"}}), std::nullopt);
}

TEST_F(HTTPTest, ConcurrentRequestsShareThePoolSafely) {
    server.on("/n", [](const testing::ReceivedRequest& request) {
        return Reply{200, "{\"n\":\"" + request.headers.at("x-n") + "\"}"};
    });
    std::atomic<int> right{0};
    std::vector<std::jthread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                const std::string n = std::to_string(t * 100 + i);
                right += HTTP::get(at("/n"), {{"X-N", n}}, 10).root()["n"].string() == n;
            }
        });
    threads.clear();  // joins them
    EXPECT_EQ(right.load(), 80);
}

}  // namespace
}  // namespace usagekit
