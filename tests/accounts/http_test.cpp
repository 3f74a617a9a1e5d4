#include "accounts/http.h"

#include "support/fake_provider.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace usagekit {
namespace {

using testing::FakeProvider;
using testing::Reply;

class HTTPTest : public ::testing::Test {
  protected:
    HTTPTest() {
        server.on("/", Reply{});
        server.on("/rpc", Reply{});
    }
    std::string at(const std::string& path) const { return server.url() + path; }
    FakeProvider server;
};

template <class F>
HTTP::Err errOf(F&& call) {
    try {
        call();
    } catch (const HTTP::Err& err) {
        return err;
    }
    ADD_FAILURE() << "no HTTP::Err was thrown";
    return HTTP::Err(-1, "");
}

template <class F>
std::string transportFailureOf(F&& call) {
    try {
        call();
    } catch (const HTTP::TransportError& error) {
        return error.what();
    }
    ADD_FAILURE() << "no TransportError was thrown";
    return "";
}

TEST_F(HTTPTest, GetSendsOnlyTheCallersHeadersAndParsesTheAnswer) {
    server.on("/v1/x", Reply{200, R"({"data":[{"n":1}]})"});
    JSONDocument answer =
        HTTP::get(at("/v1/x"), {{"Authorization", "Bearer a"}, {"X-Trace", "t"}}, 5);
    EXPECT_EQ(answer.root()["data"][size_t{0}]["n"].integer(), 1);
    auto seen = server.requests().at(0);
    EXPECT_EQ(seen.method, "GET");
    EXPECT_EQ(seen.target, "/v1/x");
    // libcurl's own Accept and any content type are kept off a GET.
    EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"authorization", "host", "x-trace"}));
    EXPECT_EQ(seen.header("X-Trace"), "t");
}

TEST_F(HTTPTest, ALaterHeaderOfTheSameNameReplacesTheEarlierOne) {
    HTTP::get(at("/"), {{"X-Mode", "first"}, {"Accept", "text/plain"}, {"x-mode", "second"}}, 5);
    auto seen = server.requests().at(0);
    EXPECT_EQ(seen.header("X-Mode"), "second");
    EXPECT_EQ(seen.header("Accept"), "text/plain");
    EXPECT_EQ(seen.headerNames(), (std::vector<std::string>{"accept", "host", "x-mode"}));
}

TEST_F(HTTPTest, RefusedStatusesNameTheKeyAndNeverShowTheBody) {
    server.on("/401", Reply{401, R"({"error":"invalid x-api-key"})"});
    server.on("/403", Reply{403, "<html><body>Forbidden by edge</body></html>", "text/html"});
    HTTP::Err unauthorised = errOf([&] { HTTP::get(at("/401"), {}, 5); });
    EXPECT_STREQ(unauthorised.what(), "Rejected the key (HTTP 401).");
    EXPECT_EQ(unauthorised.status, 401);
    HTTP::Err forbidden = errOf([&] { HTTP::post(at("/403"), {}, "{}", 5); });
    EXPECT_STREQ(forbidden.what(), "Rejected the key (HTTP 403).");
    EXPECT_EQ(forbidden.body, "<html><body>Forbidden by edge</body></html>");
}

TEST_F(HTTPTest, OtherStatusesShowTheFirst240CharactersOfTheBody) {
    const std::string body(1000, 'x');
    server.on("/500", Reply{500, body, "text/plain"});
    HTTP::Err err = errOf([&] { HTTP::get(at("/500"), {}, 5); });
    EXPECT_EQ(std::string(err.what()), "HTTP 500 \u2014 " + std::string(240, 'x'));
    EXPECT_EQ(err.body, body);

    // Characters, not bytes: a cut inside a UTF-8 sequence would garble the message.
    std::string accented;
    for (int i = 0; i < 300; ++i)
        accented += "\u00e9";
    server.on("/502", Reply{502, accented, "text/plain"});
    err = errOf([&] { HTTP::get(at("/502"), {}, 5); });
    EXPECT_EQ(std::string(err.what()), "HTTP 502 \u2014 " + accented.substr(0, 480));

    // A short body is given whole; a redirect is an answer, not followed with the key.
    server.on("/301", Reply{301, "moved", "text/plain"});
    err = errOf([&] { HTTP::get(at("/301"), {{"Authorization", "Bearer a"}}, 5); });
    EXPECT_STREQ(err.what(), "HTTP 301 \u2014 moved");
}

TEST_F(HTTPTest, SuccessWithoutJSONGivesNullNotAnError) {
    server.on("/204", Reply{204, ""});
    server.on("/html", Reply{200, "<html>maintenance</html>", "text/html"});
    server.on("/bytes", Reply{200, "\xff\xfe{}", "application/octet-stream"});
    EXPECT_TRUE(HTTP::get(at("/204"), {}, 5).root().isNull());
    EXPECT_TRUE(HTTP::get(at("/html"), {}, 5).root().isNull());
    HTTP::Response raw = HTTP::sendRaw({"GET", at("/bytes"), {}, std::nullopt, 5});
    EXPECT_EQ(raw.status, 200);
    EXPECT_TRUE(raw.json.root().isNull());
    EXPECT_EQ(raw.body, "");  // not UTF-8
    // A failure status with a non-UTF-8 body carries an empty body.
    server.on("/bad", Reply{500, "\xff\xfe", "application/octet-stream"});
    EXPECT_STREQ(errOf([&] { HTTP::get(at("/bad"), {}, 5); }).what(), "HTTP 500 \u2014 ");
}

TEST_F(HTTPTest, ASlowAnswerEndsWithTheTimeOut) {
    server.on("/slow", Reply{200, "{}", "application/json", 30});
    auto started = std::chrono::steady_clock::now();
    std::string message = transportFailureOf([&] { HTTP::get(at("/slow"), {}, 0.4); });
    double waited =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    EXPECT_EQ(message, "The request to 127.0.0.1 timed out after 0.4 seconds.");
    EXPECT_GE(waited, 0.35);
    EXPECT_LT(waited, 5);
}

TEST_F(HTTPTest, ALostConnectionOrNoServerIsATransportFailure) {
    server.on("/drop", Reply{200, std::string(4000, ' ') + "{}", "application/json", 0, true});
    EXPECT_EQ(transportFailureOf([&] { HTTP::get(at("/drop"), {}, 5); }),
              "The connection to 127.0.0.1 was lost before the answer arrived.");
    const std::string closed = "http://127.0.0.1:" + std::to_string(testing::closedPort());
    EXPECT_EQ(transportFailureOf([&] { HTTP::post(closed + "/", {}, "{}", 5); }),
              "Could not connect to 127.0.0.1.");
}

TEST_F(HTTPTest, PlainHTTPIsRefusedBeyondThisComputer) {
    for (std::string address :
         {"http://example.com/v1", "http://10.0.0.1:8080/", "ftp://127.0.0.1/", "file:///etc/hosts",
          "http://127.0.0.1.example.com/", "not a url"}) {
        auto started = std::chrono::steady_clock::now();
        std::string message = transportFailureOf([&] {
            HTTP::get(address, {{"Authorization", "Bearer a"}}, 5);
        });
        EXPECT_FALSE(message.empty()) << address;
        // Refused before any connection attempt, so at once.
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(200));
    }
    EXPECT_EQ(transportFailureOf([&] { HTTP::get("http://example.com/", {}, 5); }),
              "Refused to send a request to example.com without encryption; the address must "
              "begin with https://.");
    // Every loopback spelling is allowed.
    std::string port = server.url().substr(server.url().rfind(':'));
    EXPECT_NO_THROW(HTTP::get("http://localhost" + port + "/", {}, 5));
    EXPECT_NO_THROW(HTTP::get("HTTP://127.0.0.1" + port + "/", {}, 5));
}

TEST_F(HTTPTest, AHeaderWithALineBreakIsNeverSent) {
    EXPECT_FALSE(transportFailureOf([&] {
                     HTTP::get(at("/"), {{"Authorization", "Bearer a\r\nX-Injected: 1"}}, 5);
                 }).empty());
    EXPECT_TRUE(server.requests().empty());
}

TEST_F(HTTPTest, PostSetsItsContentTypeAfterTheCallersHeaders) {
    HTTP::post(at("/rpc"), {{"Content-Type", "text/plain"}, {"Connect-Protocol-Version", "1"}},
               R"({"page":1,"pageSize":100})", 5);
    auto withBody = server.requests().at(0);
    EXPECT_EQ(withBody.method, "POST");
    EXPECT_EQ(withBody.body, R"({"page":1,"pageSize":100})");
    EXPECT_EQ(withBody.header("Content-Type"), "application/json");
    EXPECT_EQ(withBody.headerNames(),
              (std::vector<std::string>{"connect-protocol-version", "content-length",
                                        "content-type", "host"}));

    HTTP::post(at("/rpc"), {}, std::nullopt, 5);
    auto withoutBody = server.requests().at(1);
    EXPECT_EQ(withoutBody.body, "");
    EXPECT_FALSE(withoutBody.hasHeader("Content-Type"));
}

TEST_F(HTTPTest, PostJSONAndPostFormReturnTheStatusUnchecked) {
    server.on("/token", Reply{400, R"({"error":"invalid_grant"})"});
    auto [status, answer] = HTTP::postJSON(at("/token"), R"({"grant_type":"refresh_token"})", 5);
    EXPECT_EQ(status, 400);
    EXPECT_EQ(answer.root()["error"].string(), "invalid_grant");
    auto json = server.requests().at(0);
    EXPECT_EQ(json.header("Accept"), "application/json");
    EXPECT_EQ(json.header("Content-Type"), "application/json");

    auto [formStatus, formAnswer] =
        HTTP::postForm(at("/token"), {{"b", "x y"}, {"a", "1&c=2+3?"}, {"b", "/:@"}}, 5);
    EXPECT_EQ(formStatus, 400);
    auto form = server.requests().at(1);
    // Pairs stay in the given order; "&", "=", "+" and "?" cannot split or end a pair.
    EXPECT_EQ(form.body, "b=x%20y&a=1%26c%3D2%2B3%3F&b=/:@");
    EXPECT_EQ(form.header("Content-Type"), "application/x-www-form-urlencoded");
    EXPECT_EQ(form.header("Accept"), "application/json");
}

TEST_F(HTTPTest, URLSetsTheQueryInOrderAndRejectsWhatIsNotAURL) {
    EXPECT_EQ(
        HTTP::url("https://api.example.com/v1/report", {{"starting_at", "2026-07-01T09:15:02Z"},
                                                        {"group_by[]", "model"},
                                                        {"note", "a b&c"},
                                                        {"group_by[]", "workspace_id"}}),
        "https://api.example.com/v1/report?starting_at=2026-07-01T09:15:02Z&group_by%5B%5D="
        "model&note=a%20b%26c&group_by%5B%5D=workspace_id");
    EXPECT_EQ(HTTP::url("https://api.example.com/v1/x?old=1", {}), "https://api.example.com/v1/x");
    EXPECT_EQ(HTTP::url("https://api.example.com/teams/a b", {}), std::nullopt);
    EXPECT_EQ(HTTP::url("no scheme here", {}), std::nullopt);
    EXPECT_EQ(HTTP::url("", {{"a", "1"}}), std::nullopt);
}

TEST_F(HTTPTest, ConcurrentRequestsShareThePoolSafely) {
    server.on("/n", [](const testing::ReceivedRequest& request) {
        return Reply{200, "{\"echo\":\"" + request.header("X-N") + "\"}"};
    });
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i) {
                std::string n = std::to_string(t * 100 + i);
                auto answer = HTTP::get(at("/n"), {{"X-N", n}}, 10);
                right += answer.root()["echo"].string() == n;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right.load(), 80);
}

}  // namespace
}  // namespace usagekit
