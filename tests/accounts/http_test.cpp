#include "accounts/http.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace usagekit {
namespace {

using testing::Reply;
using Names = std::vector<std::string>;

class HTTPTest : public ::testing::Test {
  protected:
    HTTPTest() { server.on("/", Reply{}); }
    std::string at(const std::string& path) const { return server.url() + path; }
    testing::FakeProvider server;
};

// What get() threw: the Err's text, or the transport failure's.
std::string failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const HTTP::Err& err) {
        return "Err " + std::string(err.what());
    } catch (const HTTP::TransportError& error) {
        return "Transport " + std::string(error.what());
    }
    return "no failure";
}

TEST_F(HTTPTest, ARequestCarriesOnlyTheCallersHeadersTheLastOfEachName) {
    server.on("/x", Reply{200, R"({"data":[{"n":1}]})"});
    auto answer =
        HTTP::get(at("/x"), {{"X-Mode", "a"}, {"Authorization", "b"}, {"x-mode", "c"}}, 5);
    EXPECT_EQ(answer.root()["data"][size_t{0}]["n"].integer(), 1);
    auto seen = server.requests().at(0);
    EXPECT_EQ(seen.method, "GET");
    // libcurl's own Accept is kept off.
    EXPECT_EQ(seen.headerNames(), (Names{"authorization", "host", "x-mode"}));
    EXPECT_EQ(seen.header("X-Mode"), "c");
}

TEST_F(HTTPTest, FailureStatusesDescribeThemselvesForTheUser) {
    std::string accented;
    for (int i = 0; i < 300; ++i)
        accented += "\u00e9";
    server.on("/401", Reply{401, R"({"error":"invalid x-api-key"})"});
    server.on("/403", Reply{403, "<html><body>Forbidden</body></html>", "text/html"});
    server.on("/500", Reply{500, std::string(1000, 'x'), "text/plain"});
    server.on("/502", Reply{502, accented, "text/plain"});
    server.on("/301", Reply{301, "moved", "text/plain"});  // not followed with the key
    server.on("/503", Reply{503, "\xff\xfe", "application/octet-stream"});
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/401"), {}, 5); }), "Err Rejected the key (HTTP 401).");
    EXPECT_EQ(failureOf([&] { HTTP::post(at("/403"), {}, "{}", 5); }),
              "Err Rejected the key (HTTP 403).");
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/500"), {}, 5); }),
              "Err HTTP 500 \u2014 " + std::string(240, 'x'));
    // 240 characters, not bytes: a cut inside a UTF-8 sequence would garble the text.
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/502"), {}, 5); }),
              "Err HTTP 502 \u2014 " + accented.substr(0, 480));
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/301"), {}, 5); }), "Err HTTP 301 \u2014 moved");
    EXPECT_EQ(failureOf([&] { HTTP::get(at("/503"), {}, 5); }), "Err HTTP 503 \u2014 ");
    try {
        HTTP::get(at("/500"), {}, 5);
    } catch (const HTTP::Err& err) {
        EXPECT_EQ(err.status, 500);
        EXPECT_EQ(err.body.size(), 1000u);
    }
}

TEST_F(HTTPTest, SuccessWithoutJSONIsNullNotAnError) {
    server.on("/204", Reply{204, ""});
    server.on("/html", Reply{200, "<html>maintenance</html>", "text/html"});
    server.on("/bytes", Reply{200, "\xff\xfe{}", "application/octet-stream"});
    EXPECT_TRUE(HTTP::get(at("/204"), {}, 5).root().isNull());
    EXPECT_TRUE(HTTP::get(at("/html"), {}, 5).root().isNull());
    HTTP::Response raw = HTTP::sendRaw({"GET", at("/bytes"), {}, std::nullopt, 5});
    EXPECT_EQ(raw.status, 200);
    EXPECT_TRUE(raw.json.root().isNull());
    EXPECT_EQ(raw.body, "");
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
    const std::string closed = "http://127.0.0.1:" + std::to_string(testing::closedPort());
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
              "no failure");
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
    HTTP::postForm(at("/token"), {{"b", "x y"}, {"a", "1&c=2+3?"}, {"b", "/:@"}}, 5);

    auto seen = server.requests();
    EXPECT_EQ(seen[0].body, R"({"page":1})");
    EXPECT_EQ(seen[0].header("Content-Type"), "application/json");
    EXPECT_EQ(seen[0].headerNames(),
              (Names{"connect-protocol-version", "content-length", "content-type", "host"}));
    EXPECT_FALSE(seen[1].hasHeader("Content-Type"));
    EXPECT_EQ(seen[2].header("Accept") + " " + seen[2].header("Content-Type"),
              "application/json application/json");
    // Pairs in the given order; "&", "=", "+" and "?" can neither split nor end a pair.
    EXPECT_EQ(seen[3].body, "b=x%20y&a=1%26c%3D2%2B3%3F&b=/:@");
    EXPECT_EQ(seen[3].header("Content-Type"), "application/x-www-form-urlencoded");
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
        return Reply{200, "{\"n\":\"" + request.header("X-N") + "\"}"};
    });
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                const std::string n = std::to_string(t * 100 + i);
                right += HTTP::get(at("/n"), {{"X-N", n}}, 10).root()["n"].string() == n;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right.load(), 80);
}

}  // namespace
}  // namespace usagekit
