#include "support/fake_provider.h"

#include "accounts/keychain.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace usagekit::testing {

namespace {

std::string lowercased(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// httplib files the peer's addresses among the headers; no client sent those.
bool isPseudoHeader(const std::string& name) {
    return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" ||
           name == "LOCAL_PORT";
}

}  // namespace

std::string ReceivedRequest::query() const {
    auto mark = target.find('?');
    return mark == std::string::npos ? std::string() : target.substr(mark + 1);
}

std::string ReceivedRequest::header(const std::string& name) const {
    const std::string wanted = lowercased(name);
    for (auto& [key, value] : headers)
        if (key == wanted) return value;
    return {};
}

bool ReceivedRequest::hasHeader(const std::string& name) const {
    const std::string wanted = lowercased(name);
    return std::any_of(headers.begin(), headers.end(),
                       [&](auto& header) { return header.first == wanted; });
}

std::vector<std::string> ReceivedRequest::headerNames() const {
    std::vector<std::string> names;
    for (auto& header : headers)
        names.push_back(header.first);
    return names;
}

struct FakeProvider::State {
    httplib::Server server;
    int port = 0;
    std::thread thread;
    mutable std::mutex mutex;
    std::condition_variable stopping;
    bool stopped = false;
    std::map<std::string, Handler> routes;
    std::vector<ReceivedRequest> received;

    void serve(const httplib::Request& request, httplib::Response& response) {
        ReceivedRequest seen{request.method, request.path, request.target, request.body, {}};
        for (auto& [name, value] : request.headers)
            if (!isPseudoHeader(name)) seen.headers.emplace_back(lowercased(name), value);
        std::sort(seen.headers.begin(), seen.headers.end());
        Handler handler;
        {
            std::lock_guard lock(mutex);
            received.push_back(seen);
            auto route = routes.find(request.path);
            if (route != routes.end()) handler = route->second;
        }
        Reply reply = handler ? handler(seen) : Reply{404, "{\"error\":\"no such path\"}"};
        if (reply.delaySeconds > 0) {
            std::unique_lock lock(mutex);
            stopping.wait_for(lock, std::chrono::duration<double>(reply.delaySeconds),
                              [this] { return stopped; });
        }
        response.status = reply.status;
        if (reply.drop) {
            auto body = std::make_shared<std::string>(reply.body);
            response.set_content_provider(body->size(), reply.contentType,
                                          [body](size_t, size_t, httplib::DataSink& sink) {
                                              sink.write(body->data(), body->size() / 2);
                                              return false;  // httplib closes the connection here
                                          });
            return;
        }
        response.set_content(reply.body, reply.contentType);
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
    state.server.Put(".*", handler);
    state.server.Delete(".*", handler);
    state.port = state.server.bind_to_any_port("127.0.0.1");
    state.thread = std::thread([&state] { state.server.listen_after_bind(); });
}

FakeProvider::~FakeProvider() {
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopped = true;
    }
    m_state->stopping.notify_all();
    // stop() does nothing until the accept loop runs, so wait for it to start.
    for (int i = 0; i < 5000 && !m_state->server.is_running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_state->server.stop();
    m_state->thread.join();
}

std::string FakeProvider::url() const {
    return "http://127.0.0.1:" + std::to_string(m_state->port);
}

void FakeProvider::on(const std::string& path, Reply reply) {
    on(path, [reply](const ReceivedRequest&) { return reply; });
}

void FakeProvider::on(const std::string& path, Handler handler) {
    std::lock_guard lock(m_state->mutex);
    m_state->routes[path] = std::move(handler);
}

std::vector<ReceivedRequest> FakeProvider::requests() const {
    std::lock_guard lock(m_state->mutex);
    return m_state->received;
}

int closedPort() {
    // Bind a port and close it without listening: nothing answers there afterwards.
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    socklen_t length = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(fd);
    return ntohs(address.sin_port);
}

void ProviderTest::SetUp() {
    TempHome::SetUp();
    server = std::make_unique<FakeProvider>();
    const std::string nowhere = "unix:path=" + (root / "no-bus").string();
    m_env.push_back(std::make_unique<ScopedEnv>("DBUS_SESSION_BUS_ADDRESS", nowhere));
}

void ProviderTest::TearDown() {
    server.reset();
    while (!m_env.empty())
        m_env.pop_back();  // restore in reverse order
    TempHome::TearDown();
}

void ProviderTest::endpoint(const std::string& name) {
    m_env.push_back(std::make_unique<ScopedEnv>(("TALLY_ENDPOINT_" + name).c_str(), server->url()));
}

void ProviderTest::key(const std::string& account, const std::string& value) {
    m_env.push_back(std::make_unique<ScopedEnv>(Keychain::environmentName(account).c_str(), value));
}

}  // namespace usagekit::testing
