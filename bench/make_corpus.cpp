// Writes a realistic home directory of coding-agent logs for the benchmark and the demo:
// Claude Code sessions (most of the bytes, mostly message content that carries no usage),
// Codex rollouts, and smaller Gemini, Grok, Copilot and OpenCode data. The same seed,
// size, file count, anchor day and profile always give the same bytes. With
// --compressed-codex, some Codex rollouts are left as Codex leaves a week-old one:
// compressed to .jsonl.zst.
//
// Profiles: in the default one each Claude Code session and Codex rollout keeps one model
// (about one record per log); with `--profile many-models` a session switches among four
// models as a heavy user's does (about four records per log), at the same size.
#include <sqlite3.h>
#include <zstd.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Options {
    fs::path out;
    uint64_t bytes = 64ull << 20;
    int files = 200;
    uint64_t seed = 1;
    int64_t anchor = 0;  // the newest day in the corpus, as seconds since 1970 (UTC midnight)
    int days = 60;
    bool single = false;      // one Claude Code log of the whole size, nothing else
    int compressedCodex = 0;  // percent of the Codex rollouts written compressed
    bool manyModels = false;  // sessions switch models (--profile many-models)
};

// In the many-models profile, the chance that a session picks its model anew at a turn.
constexpr int kSwitchPercent = 50;

// splitmix64: small, fast and the same everywhere.
class Random {
  public:
    explicit Random(uint64_t seed) : m_state(seed) {}
    uint64_t next() {
        uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    int64_t range(int64_t low, int64_t high) {  // inclusive
        return low + static_cast<int64_t>(next() % static_cast<uint64_t>(high - low + 1));
    }
    bool chance(int percent) { return range(1, 100) <= percent; }
    std::string hex(int n) {
        static const char* digits = "0123456789abcdef";
        std::string s;
        for (int i = 0; i < n; ++i)
            s.push_back(digits[next() & 15]);
        return s;
    }
    std::string uuid() {
        return hex(8) + "-" + hex(4) + "-4" + hex(3) + "-a" + hex(3) + "-" + hex(12);
    }

  private:
    uint64_t m_state;
};

std::string iso(double t) {
    time_t whole = static_cast<time_t>(t);
    int millis = static_cast<int>((t - static_cast<double>(whole)) * 1000);
    struct tm parts;
    gmtime_r(&whole, &parts);
    char buf[96];
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                  millis);
    return buf;
}

// Text that looks like code and prose: JSON-escaped, no "usage" in quotes.
std::string filler(Random& rng, size_t length) {
    static const char* words[] = {"const",  "return", "function", "value", "the",          "file",
                                  "if",     "(x)",    "{",        "}",     "for",          "let",
                                  "result", "=",      "map",      "\\n",   "\\\"path\\\"", "error",
                                  "import", "test",   "usage"};
    std::string s;
    s.reserve(length + 16);
    while (s.size() < length) {
        s += words[rng.next() % (sizeof words / sizeof *words)];
        s.push_back(' ');
    }
    s.resize(length);
    if (!s.empty() && s.back() == '\\') s.back() = ' ';
    return s;
}

class Writer {
  public:
    explicit Writer(const fs::path& path) {
        fs::create_directories(path.parent_path());
        m_out.open(path, std::ios::binary | std::ios::trunc);
    }
    void line(const std::string& text) {
        m_out << text << '\n';
        m_bytes += text.size() + 1;
    }
    void raw(const std::string& text) {
        m_out << text;
        m_bytes += text.size();
    }
    uint64_t bytes() const { return m_bytes; }

  private:
    std::ofstream m_out;
    uint64_t m_bytes = 0;
};

const char* kClaudeModels[] = {"claude-sonnet-4-6", "claude-opus-4-7", "claude-haiku-4-5",
                               "claude-sonnet-4-6-20260101"};
const char* kCodexModels[] = {"gpt-5-codex", "gpt-5", "gpt-5.5", "gpt-5.6-sol"};
const char* kProjects[] = {"/home/ana/src/app", "/home/ana/src/api", "/home/ana/work/infra",
                           "/home/ana/src/site", "/home/ana/play/tool kit"};

double dayTime(Random& rng, const Options& o) {
    // A quarter of the sessions fall on the newest day, so "today" has something to show.
    int64_t day = o.anchor - 86400 * (rng.chance(25) ? 0 : rng.range(1, o.days - 1));
    return static_cast<double>(day + rng.range(6 * 3600, 23 * 3600));
}

uint64_t writeClaudeSession(const fs::path& file, uint64_t target, bool sidechain, Random& rng,
                            const Options& o) {
    Writer w(file);
    const std::string session = rng.uuid();
    const std::string project = kProjects[rng.next() % 5];
    std::string model = kClaudeModels[rng.next() % 4];
    double t = dayTime(rng, o);
    const std::string side = sidechain ? "true" : "false";
    std::string parent = rng.uuid();
    w.line(R"({"type":"summary","summary":"Refactor the parser","leafUuid":")" + parent + "\"}");
    int64_t context = rng.range(2000, 20000);
    while (w.bytes() < target) {
        if (o.manyModels && rng.chance(kSwitchPercent)) model = kClaudeModels[rng.next() % 4];
        t += static_cast<double>(rng.range(2, 90)) + 0.123;
        // The user's turn: a tool result of 200 B to 20 KB.
        std::string uuid = rng.uuid();
        w.line(
            R"({"parentUuid":")" + parent + R"(","isSidechain":)" + side +
            R"(,"userType":"external","cwd":")" + project + R"(","sessionId":")" + session +
            R"(","version":"2.1.90","gitBranch":"main","type":"user","message":{"role":"user","content":[{"type":"tool_result","tool_use_id":"toolu_)" +
            rng.hex(20) + R"(","content":")" +
            filler(rng, static_cast<size_t>(rng.range(200, 20000))) + R"("}]},"uuid":")" + uuid +
            R"(","timestamp":")" + iso(t) + "\"}");
        parent = uuid;
        // The reply: one line per content block, each repeating the request's usage.
        t += static_cast<double>(rng.range(1, 30));
        const std::string request = "req_011C" + rng.hex(18);
        const std::string message = "msg_01" + rng.hex(20);
        context += rng.range(100, 3000);
        const int64_t write = rng.range(0, 2000), output = rng.range(10, 2500);
        const std::string usage = R"({"input_tokens":)" + std::to_string(rng.range(1, 50)) +
                                  R"(,"cache_creation_input_tokens":)" + std::to_string(write) +
                                  R"(,"cache_read_input_tokens":)" + std::to_string(context) +
                                  R"(,"cache_creation":{"ephemeral_5m_input_tokens":)" +
                                  std::to_string(write) +
                                  R"(,"ephemeral_1h_input_tokens":0},"output_tokens":)" +
                                  std::to_string(output) + R"(,"service_tier":"standard"})";
        const int blocks = rng.chance(33) ? static_cast<int>(rng.range(2, 3)) : 1;
        for (int b = 0; b < blocks; ++b) {
            std::string content =
                b == 0 ? R"([{"type":"text","text":")" +
                             filler(rng, static_cast<size_t>(rng.range(50, 1500))) + "\"}]"
                       : R"([{"type":"tool_use","id":"toolu_)" + rng.hex(20) +
                             R"(","name":"Edit","input":{"file_path":")" + project + "/src/" +
                             rng.hex(6) + R"(.ts","new_string":")" +
                             filler(rng, static_cast<size_t>(rng.range(100, 3000))) + "\"}}]";
            uuid = rng.uuid();
            w.line(R"({"parentUuid":")" + parent + R"(","isSidechain":)" + side +
                   R"(,"userType":"external","cwd":")" + project + R"(","sessionId":")" + session +
                   R"(","version":"2.1.90","gitBranch":"main","message":{"model":")" + model +
                   R"(","id":")" + message + R"(","type":"message","role":"assistant","content":)" +
                   content + R"(,"stop_reason":null,"stop_sequence":null,"usage":)" + usage +
                   R"(},"requestId":")" + request + R"(","type":"assistant","uuid":")" + uuid +
                   R"(","timestamp":")" + iso(t) + "\"}");
            parent = uuid;
        }
        if (rng.chance(3))
            w.line(R"({"type":"file-history-snapshot","messageId":")" + uuid +
                   R"(","snapshot":{"trackedFileBackups":{},"timestamp":")" + iso(t) + "\"}}");
    }
    // A session that was still being written when the machine died.
    if (rng.chance(5))
        w.raw(R"({"parentUuid":")" + parent + R"(","isSidechain":false,"message":{"usa)");
    return w.bytes();
}

// Replaces a log by its zstd compression at zstd's default level, as Codex compresses a
// rollout, and returns the compressed size. The generator's random stream is not touched,
// so every other file stays as it was.
uint64_t compress(const fs::path& log) {
    std::ifstream in(log, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string packed(ZSTD_compressBound(text.size()), '\0');
    const size_t size =
        ZSTD_compress(packed.data(), packed.size(), text.data(), text.size(), ZSTD_CLEVEL_DEFAULT);
    if (ZSTD_isError(size)) return text.size();
    std::ofstream(log.string() + ".zst", std::ios::binary)
        .write(packed.data(), static_cast<std::streamsize>(size));
    fs::remove(log);
    return size;
}

uint64_t writeCodexRollout(const fs::path& sessions, uint64_t target, Random& rng, const Options& o,
                           bool compressed) {
    double t = dayTime(rng, o);
    time_t whole = static_cast<time_t>(t);
    struct tm parts;
    gmtime_r(&whole, &parts);
    char folder[64], stamp[32];
    std::snprintf(folder, sizeof folder, "%04d/%02d/%02d", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday);
    std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H-%M-%S", &parts);
    const std::string id = rng.uuid();
    const fs::path path =
        sessions / folder / ("rollout-" + std::string(stamp) + "-" + id + ".jsonl");
    uint64_t written = 0;
    {
        Writer w(path);
        const std::string cwd = kProjects[rng.next() % 5];
        w.line(
            R"({"timestamp":")" + iso(t) + R"(","type":"session_meta","payload":{"id":")" + id +
            R"(","timestamp":")" + iso(t) + R"(","cwd":")" + cwd +
            R"(","originator":"codex_cli_rs","cli_version":"0.150.0","source":"cli","model_provider":"openai"}})");
        w.line(R"({"timestamp":")" + iso(t + 1) + R"(","type":"turn_context","payload":{"cwd":")" +
               cwd + R"(","model":"gpt-5-codex","effort":"high","approval_policy":"on-request"}})");
        int64_t input = 0, cached = 0, output = 0, reasoning = 0;
        while (w.bytes() < target) {
            // Codex writes a turn's settings, its model among them, before the turn; here
            // about every other turn, with the model picked anew.
            if (o.manyModels && rng.chance(kSwitchPercent))
                w.line(R"({"timestamp":")" + iso(t + 1) +
                       R"(","type":"turn_context","payload":{"cwd":")" + cwd + R"(","model":")" +
                       kCodexModels[rng.next() % 4] +
                       R"(","effort":"high","approval_policy":"on-request"}})");
            t += static_cast<double>(rng.range(5, 120));
            w.line(
                R"({"timestamp":")" + iso(t) +
                R"(","type":"response_item","payload":{"type":"message","role":"assistant","content":[{"type":"output_text","text":")" +
                filler(rng, static_cast<size_t>(rng.range(500, 12000))) + "\"}]}}");
            const int64_t turnIn = rng.range(3000, 30000), turnCached = turnIn * 8 / 10;
            const int64_t turnOut = rng.range(50, 3000), turnReasoning = turnOut / 2;
            input += turnIn;
            cached += turnCached;
            output += turnOut;
            reasoning += turnReasoning;
            auto counts = [](int64_t in, int64_t ca, int64_t out, int64_t re) {
                return R"({"input_tokens":)" + std::to_string(in) + R"(,"cached_input_tokens":)" +
                       std::to_string(ca) + R"(,"output_tokens":)" + std::to_string(out) +
                       R"(,"reasoning_output_tokens":)" + std::to_string(re) +
                       R"(,"total_tokens":)" + std::to_string(in + out) + "}";
            };
            w.line(
                R"({"timestamp":")" + iso(t + 0.5) +
                R"(","type":"event_msg","payload":{"type":"token_count","info":{"total_token_usage":)" +
                counts(input, cached, output, reasoning) + R"(,"last_token_usage":)" +
                counts(turnIn, turnCached, turnOut, turnReasoning) +
                R"(,"model_context_window":272000},"rate_limits":{"limit_id":"codex","primary":{"used_percent":)" +
                std::to_string(rng.range(1, 80)) + R"(.0,"window_minutes":300,"resets_at":)" +
                std::to_string(o.anchor + 86400 + 18000) + R"(},"secondary":{"used_percent":)" +
                std::to_string(rng.range(1, 60)) + R"(.0,"window_minutes":10080,"resets_at":)" +
                std::to_string(o.anchor + 86400 * 5) + R"(},"credits":null,"plan_type":"plus"}}})");
        }
        written = w.bytes();
    }
    return compressed ? compress(path) : written;
}

uint64_t writeGemini(const fs::path& home, Random& rng, const Options& o) {
    const std::string hash = rng.hex(16);
    fs::path dir = home / ".gemini/tmp" / hash;
    fs::create_directories(dir / "chats");
    std::ofstream(dir / ".project_root") << kProjects[rng.next() % 5] << "\n";
    double t = dayTime(rng, o);
    Writer w(dir / "chats" / ("session-" + iso(t).substr(0, 10) + "-" + rng.hex(8) + ".jsonl"));
    w.line(R"({"sessionId":")" + rng.uuid() + R"(","projectHash":")" + hash + R"(","startTime":")" +
           iso(t) + R"(","kind":"main"})");
    for (int i = 0; i < 40; ++i) {
        t += 30;
        // Appended rather than concatenated: GCC 12 warns (-Wrestrict) on "literal" + string.
        std::string id = "g";
        id += std::to_string(i);
        const std::string head = R"({"id":")" + id + R"(","timestamp":")" + iso(t) +
                                 R"(","type":"gemini","content":")" + filler(rng, 400) +
                                 R"(","model":"gemini-2.5-pro","tokens":)";
        w.line(head + "null}");
        w.line(head + R"({"input":)" + std::to_string(rng.range(1000, 20000)) + R"(,"output":)" +
               std::to_string(rng.range(10, 900)) + R"(,"cached":)" +
               std::to_string(rng.range(0, 800)) + R"(,"thoughts":)" +
               std::to_string(rng.range(0, 300)) + R"(,"tool":0,"total":1}})");
    }
    return w.bytes();
}

uint64_t writeGrok(const fs::path& home, Random& rng, const Options& o) {
    Writer w(home / ".grok/sessions/my%20project" / rng.uuid() / "updates.jsonl");
    double t = dayTime(rng, o);
    for (int i = 0; i < 30; ++i) {
        t += 60;
        w.line(
            R"({"jsonrpc":"2.0","method":"session/update","params":{"update":{"sessionUpdate":"agent_message_chunk","content":{"text":")" +
            filler(rng, 300) + "\"}}}}");
        w.line(
            R"({"timestamp":)" + std::to_string(static_cast<int64_t>(t)) +
            R"(,"jsonrpc":"2.0","method":"session/update","params":{"update":{"sessionUpdate":"turn_completed","usage":{"modelUsage":{"grok-4.6":{"inputTokens":)" +
            std::to_string(rng.range(2000, 9000)) + R"(,"cachedReadTokens":1500,"outputTokens":)" +
            std::to_string(rng.range(50, 700)) +
            R"(,"reasoningTokens":40,"modelCalls":2,"costUsdTicks":)" +
            std::to_string(rng.range(10000000, 90000000)) + "}}}}}}");
    }
    return w.bytes();
}

uint64_t writeCopilot(const fs::path& home, Random& rng, const Options& o) {
    Writer w(home / ".copilot/session-state" / (rng.uuid() + ".jsonl"));
    double t = dayTime(rng, o);
    for (int i = 0; i < 30; ++i) {
        t += 45;
        w.line(R"({"id":")" + rng.uuid() + R"(","timestamp":)" +
               std::to_string(static_cast<int64_t>(t * 1000)) +
               R"(,"model":"gpt-5","usage":{"prompt_tokens":)" +
               std::to_string(rng.range(500, 8000)) + R"(,"completion_tokens":)" +
               std::to_string(rng.range(20, 600)) + "}}");
    }
    return w.bytes();
}

uint64_t writeOpenCode(const fs::path& home, Random& rng, const Options& o) {
    fs::path db = home / ".local/share/opencode/opencode.db";
    fs::create_directories(db.parent_path());
    fs::remove(db);
    sqlite3* handle = nullptr;
    if (sqlite3_open(db.c_str(), &handle) != SQLITE_OK) return 0;
    sqlite3_exec(handle,
                 "PRAGMA journal_mode=WAL; CREATE TABLE message(id TEXT PRIMARY KEY, session_id "
                 "TEXT, time_created INTEGER, time_updated INTEGER, data TEXT); BEGIN;",
                 nullptr, nullptr, nullptr);
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(handle, "INSERT INTO message VALUES(?,?,?,?,?)", -1, &insert, nullptr);
    const std::string session = "ses_" + rng.hex(12);
    double t = dayTime(rng, o);
    for (int i = 0; i < 60; ++i) {
        t += 40;
        const int64_t ms = static_cast<int64_t>(t * 1000);
        const bool assistant = i % 2 == 1;
        const int64_t in = rng.range(300, 3000), out = rng.range(20, 800),
                      read = rng.range(0, 9000);
        std::string data =
            assistant
                ? R"({"role":"assistant","time":{"created":)" + std::to_string(ms) +
                      R"(,"completed":)" + std::to_string(ms + 4200) +
                      R"(},"modelID":"claude-sonnet-4-6","providerID":"anthropic","mode":"build","path":{"cwd":"/home/ana/src/app","root":"/home/ana/src/app"},"cost":)" +
                      std::to_string(static_cast<double>(in * 3 + out * 15 + read * 3 / 10) / 1e6) +
                      R"(,"tokens":{"total":)" + std::to_string(in + out + read) + R"(,"input":)" +
                      std::to_string(in) + R"(,"output":)" + std::to_string(out) +
                      R"(,"reasoning":0,"cache":{"read":)" + std::to_string(read) +
                      R"(,"write":100}},"finish":"stop"})"
                : R"({"role":"user","time":{"created":)" + std::to_string(ms) + "}}";
        const std::string id = "msg_" + rng.hex(16);
        sqlite3_bind_text(insert, 1, id.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 2, session.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_int64(insert, 3, ms);
        sqlite3_bind_int64(insert, 4, ms);
        sqlite3_bind_text(insert, 5, data.c_str(), -1, SQLITE_TRANSIENT);
        sqlite3_step(insert);
        sqlite3_reset(insert);
    }
    sqlite3_finalize(insert);
    sqlite3_exec(handle, "COMMIT; PRAGMA wal_checkpoint(TRUNCATE);", nullptr, nullptr, nullptr);
    sqlite3_close(handle);
    return fs::file_size(db);
}

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
        const char* v = nullptr;
        if (a == "--out" && (v = value()))
            o.out = v;
        else if (a == "--megabytes" && (v = value()))
            o.bytes = std::strtoull(v, nullptr, 10) << 20;
        else if (a == "--files" && (v = value()))
            o.files = std::atoi(v);
        else if (a == "--seed" && (v = value()))
            o.seed = std::strtoull(v, nullptr, 10);
        else if (a == "--anchor" && (v = value()))
            o.anchor = std::strtoll(v, nullptr, 10);
        else if (a == "--single")
            o.single = true;
        else if (a == "--compressed-codex" && (v = value()))
            o.compressedCodex = std::atoi(v);
        else if (a == "--profile" && (v = value()) &&
                 (!std::strcmp(v, "default") || !std::strcmp(v, "many-models")))
            o.manyModels = !std::strcmp(v, "many-models");
        else
            return false;
    }
    return !o.out.empty() && o.files >= 10 && o.bytes > 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fprintf(stderr,
                     "usage: make_corpus --out DIR [--megabytes N] [--files N] [--seed N] "
                     "[--anchor UNIX_DAY_START] [--profile default|many-models] [--single]\n"
                     "       [--compressed-codex PERCENT]\n"
                     "Writes DIR/home/... as the coding tools would (at least 10 files), or with\n"
                     "--single one Claude Code log of the whole size. With many-models,\n"
                     "sessions switch among four models (about four records per log).\n"
                     "--compressed-codex leaves that share of the Codex rollouts compressed\n"
                     "(.jsonl.zst), as Codex does with week-old ones.\n");
        return 2;
    }
    if (o.anchor == 0) o.anchor = static_cast<int64_t>(std::time(nullptr)) / 86400 * 86400;
    Random rng(o.seed);
    const fs::path home = o.out / "home";
    fs::remove_all(home);
    if (o.single) {
        const uint64_t written = writeClaudeSession(
            home / ".claude/projects/-home-ana-src-big" / (rng.uuid() + ".jsonl"), o.bytes, false,
            rng, o);
        std::printf("wrote one log of %.1f MB under %s\n", static_cast<double>(written) / (1 << 20),
                    home.c_str());
        return 0;
    }

    // About 80% of the bytes Claude Code (a tenth of its files sub-agent logs), 15% Codex,
    // the rest the smaller tools.
    const int small = std::max(4, o.files / 50);
    const int codexFiles = std::max(2, o.files / 10);
    const int claudeFiles = std::max(2, o.files - codexFiles - 4 * small);
    const uint64_t claudeBytes = o.bytes * 80 / 100, codexBytes = o.bytes * 15 / 100;
    uint64_t written = 0;
    for (int i = 0; i < claudeFiles; ++i) {
        const uint64_t average = claudeBytes / static_cast<uint64_t>(claudeFiles);
        const uint64_t target = average / 2 + rng.next() % (average + 1);
        const std::string project = "-home-ana-src-p" + std::to_string(i % 40);
        const std::string session = rng.uuid();
        fs::path dir = home / ".claude/projects" / project;
        if (i % 10 == 9)
            written +=
                writeClaudeSession(dir / session / "subagents" / ("agent-" + rng.hex(8) + ".jsonl"),
                                   target, true, rng, o);
        else
            written += writeClaudeSession(dir / (session + ".jsonl"), target, false, rng, o);
    }
    for (int i = 0; i < codexFiles; ++i) {
        const uint64_t average = codexBytes / static_cast<uint64_t>(codexFiles);
        // Spread evenly over the rollouts: with 50, every second one.
        const bool compressed = (i + 1) * o.compressedCodex / 100 > i * o.compressedCodex / 100;
        written += writeCodexRollout(home / ".codex/sessions",
                                     average / 2 + rng.next() % (average + 1), rng, o, compressed);
    }
    for (int i = 0; i < small; ++i) {
        written += writeGemini(home, rng, o);
        written += writeGrok(home, rng, o);
        written += writeCopilot(home, rng, o);
    }
    written += writeOpenCode(home, rng, o);
    std::printf("wrote %.1f MB in %d files under %s\n", static_cast<double>(written) / (1 << 20),
                claudeFiles + codexFiles + 3 * small + 1, home.c_str());
    return 0;
}
