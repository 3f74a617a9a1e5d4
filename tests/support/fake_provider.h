// A fake provider on 127.0.0.1 for the account readers' tests: routes answer by path with
// a canned reply or a function of the request, and every request is recorded as it came
// (method, path, raw target with its query in order, headers, body). Replies can be slow
// (the server stays stoppable) or cut off mid-body. Point a reader at url() through its
// TALLY_ENDPOINT_* variable. Unknown paths get a 404.
#pragma once

#include "core/usage_record.h"
#include "support/record_text.h"
#include "support/temp_home.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace usagekit::testing {

struct ReceivedRequest {
    std::string method;
    std::string path;
    std::string target;  // path and query exactly as sent
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;  // names lower-cased, sorted

    std::string query() const;
    // "" when absent.
    std::string header(const std::string& name) const;
    bool hasHeader(const std::string& name) const;
    // The lower-cased names, sorted: what a test compares to assert "no other header".
    std::vector<std::string> headerNames() const;
};

struct Reply {
    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
    double delaySeconds = 0;  // answer only after this long
    bool drop = false;        // send the headers and half the body, then close
};

class FakeProvider {
  public:
    using Handler = std::function<Reply(const ReceivedRequest&)>;

    FakeProvider();
    ~FakeProvider();
    FakeProvider(const FakeProvider&) = delete;
    FakeProvider& operator=(const FakeProvider&) = delete;

    std::string url() const;  // http://127.0.0.1:<port>
    void on(const std::string& path, Reply reply);
    void on(const std::string& path, Handler handler);
    std::vector<ReceivedRequest> requests() const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

// An account reader's records in the order given, one line each: describe() followed by
// provider, project and session ("-" when absent).
inline std::vector<std::string> lines(const std::vector<UsageRecord>& records) {
    std::vector<std::string> out;
    for (const UsageRecord& r : records)
        out.push_back(describe(r) + " " + r.provider.id + " p=" + r.project.value_or("-") +
                      " s=" + r.session.value_or("-"));
    return out;
}

// A port on 127.0.0.1 that nothing listens on.
int closedPort();

// A temporary home, a fake provider and no Secret Service (the session bus address points
// at nothing), so that keys come only from the TALLY_* variables a test sets and no test
// can reach the developer's own keyring.
class ProviderTest : public TempHome {
  protected:
    void SetUp() override;
    void TearDown() override;

    // Points TALLY_ENDPOINT_<name> at the fake provider.
    void endpoint(const std::string& name);
    // Gives `account` the key `value` through its TALLY_* variable.
    void key(const std::string& account, const std::string& value);

    std::unique_ptr<FakeProvider> server;

  private:
    std::vector<std::unique_ptr<ScopedEnv>> m_env;
};

}  // namespace usagekit::testing
