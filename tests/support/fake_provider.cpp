#include "support/fake_provider.h"

#include "accounts/http.h"
#include "core/text.h"

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace usagekit::testing {

struct FakeProvider::State {
    httplib::Server server;
    int port = 0;
    std::thread thread;
    std::atomic<bool> stopped = false;
    mutable std::mutex mutex;
    std::map<std::string, Handler> routes;
    std::vector<ReceivedRequest> received;

    void serve(const httplib::Request& request, httplib::Response& response) {
        ReceivedRequest seen{request.method, request.target, request.body, {}};
        for (auto& [name, value] : request.headers) {
            // httplib files the peer's addresses among the headers; no client sent those.
            // A name sent twice keeps both values, as "a, c".
            const std::string lower = Text::lowercased(name);
            if (lower == "host" || lower.starts_with("remote_") || lower.starts_with("local_"))
                continue;
            std::string& kept = seen.headers[lower];
            kept += (kept.empty() ? "" : ", ") + value;
        }
        Handler handler = [](const ReceivedRequest&) { return Reply{404, "{}"}; };
        {
            std::lock_guard lock(mutex);
            received.push_back(seen);
            if (routes.contains(request.path)) handler = routes[request.path];
        }
        const Reply reply = handler(seen);
        const auto until =
            std::chrono::steady_clock::now() + std::chrono::duration<double>(reply.delaySeconds);
        while (!stopped && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        response.status = reply.status;
        if (!reply.drop) return response.set_content(reply.body, reply.contentType);
        response.set_content_provider(reply.body.size(), reply.contentType,
                                      [body = reply.body](size_t, size_t, httplib::DataSink& sink) {
                                          sink.write(body.data(), body.size() / 2);
                                          return false;  // httplib closes the connection here
                                      });
    }
};

FakeProvider::FakeProvider() : m_state(std::make_unique<State>()) {
    State& state = *m_state;
    // One request per connection: an idle kept-alive connection would hold up stop().
    state.server.set_keep_alive_max_count(1);
    auto handler = [&state](const httplib::Request& request, httplib::Response& response) {
        state.serve(request, response);
    };
    state.server.Get(".*", handler);
    state.server.Post(".*", handler);
    state.port = state.server.bind_to_any_port("127.0.0.1");
    state.thread = std::thread([&state] { state.server.listen_after_bind(); });
}

FakeProvider::~FakeProvider() {
    m_state->stopped = true;
    // stop() does nothing until the accept loop runs, so wait for it to start.
    for (int i = 0; i < 5000 && !m_state->server.is_running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_state->server.stop();
    m_state->thread.join();
}

std::string FakeProvider::url() const {
    return "http://127.0.0.1:" + std::to_string(m_state->port);
}

void FakeProvider::on(const std::string& path, Handler handler) {
    std::lock_guard lock(m_state->mutex);
    m_state->routes[path] = std::move(handler);
}

std::vector<ReceivedRequest> FakeProvider::requests() const {
    std::lock_guard lock(m_state->mutex);
    return m_state->received;
}

std::string FakeProvider::sent(size_t first) const {
    const std::vector<ReceivedRequest> all = requests();
    std::string text;
    for (size_t i = first; i < all.size(); ++i) {
        text += (text.empty() ? "" : "\n") + all[i].method + " " + all[i].target;
        if (!all[i].body.empty()) text += " " + all[i].body;
        for (auto& [name, value] : all[i].headers)
            text += " | " + name + ": " + value;
    }
    return text;
}

std::string failureOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const HTTP::Err& err) {
        return "Err " + std::string(err.what());
    } catch (const HTTP::TransportError& error) {
        return "Transport " + std::string(error.what());
    }
    return "";
}

}  // namespace usagekit::testing
