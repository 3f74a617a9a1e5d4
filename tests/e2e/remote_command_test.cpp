// `tally --scan --remote` end to end: the real binary against a fake provider on loopback.
#include "support/temp_home.h"

#include <httplib.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

namespace usagekit {
namespace {

namespace fs = std::filesystem;

// Answers by path; counts every request.
class FakeProviders {
  public:
    explicit FakeProviders(std::map<std::string, std::pair<int, std::string>> answers)
        : m_answers(std::move(answers)) {
        m_server.set_pre_routing_handler(
            [this](const httplib::Request& request, httplib::Response& response) {
                ++requests;
                auto it = m_answers.find(request.path);
                response.status = it == m_answers.end() ? 404 : it->second.first;
                response.set_content(it == m_answers.end() ? "{}" : it->second.second,
                                     "application/json");
                return httplib::Server::HandlerResponse::Handled;
            });
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
    }
    ~FakeProviders() {
        for (int i = 0; i < 5000 && !m_server.is_running(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        m_server.stop();
        m_thread.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port); }
    std::atomic<int> requests{0};

  private:
    std::map<std::string, std::pair<int, std::string>> m_answers;
    httplib::Server m_server;
    int m_port = 0;
    std::thread m_thread;
};

class RemoteCommand : public testing::TempHome {
  protected:
    std::string tally(const std::string& environment, std::string* err = nullptr) {
        const fs::path errFile = root / "stderr.txt";
        // No Secret Service for the child: keys come from the environment only.
        const std::string command = "TZ=UTC0 DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent " +
                                    environment + " " + TALLY_BINARY + " --scan --remote 2>" +
                                    errFile.string();
        std::string out;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        size_t n;
        while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0)
            out.append(buffer, n);
        EXPECT_EQ(WEXITSTATUS(pclose(pipe)), 0);
        if (err) *err = testing::readText(errFile);
        return out;
    }

    static std::string endpoints(const FakeProviders& fake) {
        std::string env;
        for (const char* name : {"ANTHROPIC", "OPENAI", "XAI", "OPENROUTER", "DEEPSEEK", "CURSOR"})
            env += std::string("TALLY_ENDPOINT_") + name + "=" + fake.url() + " ";
        return env;
    }

    const std::string kEmptyLocal =
        "today $0.00 \u00B7 month $0.00 \u00B7 all $0.00 billed $0.00 equivalent $0.00 \u00B7 0 "
        "records\n";
};

TEST_F(RemoteCommand, WithoutKeysNothingIsSentAndNothingIsWrong) {
    FakeProviders fake({});
    std::string err;
    EXPECT_EQ(tally(endpoints(fake), &err),
              kEmptyLocal +
                  "with remote \u00B7 all $0.00 billed $0.00 equivalent $0.00 \u00B7 0 "
                  "records\n");
    EXPECT_EQ(err, "");
    EXPECT_EQ(fake.requests, 0);
}

TEST_F(RemoteCommand, AccountsAreAddedToTheCentAndARejectedKeyIsOneProblem) {
    FakeProviders fake({
        {"/v1/organizations/usage_report/messages",
         {200,
          R"({"data":[{"starting_at":"2026-11-01T00:00:00Z","ending_at":"2026-11-02T00:00:00Z","results":[{"model":"claude-sonnet-4-6","uncached_input_tokens":1000000,"cache_creation":{"ephemeral_1h_input_tokens":0,"ephemeral_5m_input_tokens":0},"cache_read_input_tokens":0,"output_tokens":0}]}],"has_more":false,"next_page":null})"}},
        {"/v1/organization/usage/completions", {401, R"({"error":{"message":"bad key"}})"}},
        {"/api/v1/activity",
         {200,
          R"({"data":[{"date":"2026-11-02","model":"openai/gpt-5","model_permaslug":"openai/gpt-5-2026-08-01","usage":0.5,"requests":5,"prompt_tokens":50,"completion_tokens":125,"reasoning_tokens":25}]})"}},
        {"/api/v1/credits", {200, R"({"data":{"total_credits":100.5,"total_usage":25.75}})"}},
        {"/user/balance", {500, std::string(1000, 'x')}},
    });
    const std::string keys =
        "TALLY_ANTHROPIC_ADMIN_KEY=sk-ant-admin-test TALLY_OPENAI_ADMIN_KEY=sk-admin-test "
        "TALLY_OPENROUTER_MANAGEMENT_KEY=sk-or-test TALLY_DEEPSEEK_API_KEY=sk-ds-test ";
    std::string err;
    std::string out = tally(endpoints(fake) + keys, &err);
    EXPECT_EQ(out, kEmptyLocal +
                       "with remote \u00B7 all $3.50 billed $3.50 equivalent $0.00 \u00B7 2 "
                       "records\n"
                       "  Anthropic API  $3.00  1.0M tokens\n"
                       "  OpenRouter  $0.50  175 tokens\n"
                       "API OpenAI \u2014 Rejected the key (HTTP 401).\n"
                       "API DeepSeek \u2014 HTTP 500 \u2014 " +
                       std::string(240, 'x') + "\n");
    EXPECT_EQ(err, "");
    // Anthropic, OpenAI, OpenRouter activity, DeepSeek and OpenRouter credits; no Cursor
    // database and no xAI key, so nothing is asked of them.
    EXPECT_EQ(fake.requests, 5);
    for (const char* key : {"sk-ant-admin-test", "sk-admin-test", "sk-or-test", "sk-ds-test"})
        EXPECT_EQ(out.find(key), std::string::npos);
}

}  // namespace
}  // namespace usagekit
