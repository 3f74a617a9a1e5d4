// A fake provider on 127.0.0.1: answers by path with a canned reply or a function of the
// request (unknown paths get a 404) and records every request as it came. A reply can come
// late (the server still stops at once) or be cut off mid-body. ProviderTest points the
// readers at it through TALLY_ENDPOINT_* and hands out keys through TALLY_* variables.
#pragma once

#include "accounts/keychain.h"
#include "support/temp_home.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace usagekit::testing {

struct ReceivedRequest {
    std::string method, target, body;            // target: path and query exactly as sent
    std::map<std::string, std::string> headers;  // lower-cased names, no "host"; repeats "a, c"
};

struct Reply {
    int status = 200;
    std::string body = "{}";
    std::string contentType = "application/json";
    double delaySeconds = 0;
    bool drop = false;  // send the headers and half the body, then close
};

class FakeProvider {
  public:
    using Handler = std::function<Reply(const ReceivedRequest&)>;

    FakeProvider();
    ~FakeProvider();
    std::string url() const;  // http://127.0.0.1:<port>
    void on(const std::string& path, Handler handler);
    void on(const std::string& path, Reply reply) {
        on(path, [reply](const ReceivedRequest&) { return reply; });
    }
    std::vector<ReceivedRequest> requests() const;
    // The requests from the `first`th on, one a line: "POST /p?q body | name: value | ...".
    std::string sent(size_t first = 0) const;

  private:
    struct State;
    std::unique_ptr<State> m_state;
};

// What a call threw: "Err <what()>" for an HTTP::Err, "Transport <what()>" for an
// HTTP::TransportError, "" when it returned.
std::string failureOf(const std::function<void()>& call);

// A temporary home, a fake provider and no Secret Service (the session bus address points
// at nothing), so keys come only from the variables a test sets, never the developer's own.
class ProviderTest : public TempHome {
  protected:
    void SetUp() override {
        TempHome::SetUp();
        server = std::make_unique<FakeProvider>();
        set("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (root / "no-bus").string());
    }
    void TearDown() override {
        server.reset();
        while (!m_env.empty())  // last set, first restored
            m_env.pop_back();
        TempHome::TearDown();
    }
    void endpoint(const std::string& name) { set("TALLY_ENDPOINT_" + name, server->url()); }
    void key(const std::string& account, const std::string& value) {
        set(Keychain::environmentName(account), value);
    }
    void set(const std::string& name, const std::string& value) {
        m_env.push_back(std::make_unique<ScopedEnv>(name.c_str(), value));
    }

    std::unique_ptr<FakeProvider> server;
    std::vector<std::unique_ptr<ScopedEnv>> m_env;
};

}  // namespace usagekit::testing
