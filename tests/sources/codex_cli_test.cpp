#include "sources/codex_cli.h"

#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace usagekit {
namespace {

using testing::describe;
using Lines = std::vector<std::string>;

const std::string kMain = "019f1c2a-7b3e-7d40-9a1b-2c3d4e5f6a70";
const std::string kSub = "019f1c2b-0000-7000-8000-00000000a001";
const std::string kArchived = "019e0a11-2222-7333-8444-555566667777";

// The folded id of a record: provider|model|day start (UTC)|project|session. `day` is a
// day of May 2026, or one before it counted back from 1 (0 is 30 April).
std::string key(int day, const std::string& project, const std::string& session,
                const std::string& model = "gpt-5-codex") {
    const double mayFirst = ISO8601::parse("2026-05-01T00:00:00Z")->secondsSince1970;
    return "codex-cli|" + model + "|" + doubleDescription(mayFirst + (day - 1) * 86400) + "|" +
           project + "|" + session;
}

using CodexCLISourceTest = testing::UTCHome;

TEST_F(CodexCLISourceTest, ScanReadsRolloutLogsOfSessionsThenArchive) {
    const std::string day = ".codex/sessions/2026/05/01/";
    copyFixture("codex/running_totals_with_restart.jsonl",
                day + "rollout-2026-05-01T09-00-00-" + kMain + ".jsonl");
    copyFixture("codex/subagent_thread.jsonl",
                day + "rollout-2026-05-01T09-02-00-" + kSub + ".jsonl");
    copyFixture("codex/usage_records_beside_totals.jsonl",
                ".codex/archived_sessions/rollout-2026-04-28T14-00-00-" + kArchived + ".jsonl");
    // Not a rollout: never read, whatever it holds.
    copyFixture("codex/running_totals_with_restart.jsonl", day + "notes.jsonl");

    auto files = CodexCLISource::files();
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(std::filesystem::path(files[2]).parent_path().filename(), "archived_sessions");

    ScanCache cache;
    // May 1 sums two turns; after the restart past midnight the totals start again, so
    // May 2 holds the first new totals as they stand plus the next difference. The
    // archived log counts its usage records alone, the repeated response id once.
    EXPECT_EQ(
        describe(CodexCLISource().scan(cache).all()),
        (Lines{
            key(1, "/w/app", kSub, "gpt-5-codex-mini") +
                " @2026-05-01T09:02:03Z subagent calls=1 in=2000 out=300 cr=6000 cw=0 rs=120",
            key(1, "/w/app", kMain) +
                " @2026-05-01T09:05:00Z session calls=2 in=10000 out=4000 cr=50000 cw=0 rs=2500",
            key(2, "/w/app", kMain) +
                " @2026-05-02T00:20:00Z session calls=2 in=5000 out=1500 cr=25000 cw=0 rs=800",
            key(-2, "/w/site", kArchived, "gpt-5.1-codex") +
                " @2026-04-28T14:01:00Z session calls=2 in=8000 out=900 cr=12000 cw=100 rs=400",
        }));
    EXPECT_EQ(cache.files.size(), 3u);
}

TEST_F(CodexCLISourceTest, EachFixtureGivesExactlyItsRecords) {
    for (const char* fixture : {
             // Junk holding "token_count", totals of 1e300 (dropped, so the next event counts
             // from the last good totals), an input of "1500" as a string, a last line cut off.
             "codex/cut_mid_line.jsonl",
             // More newly cached than new input stops uncached input at 0; when only
             // reasoning goes back the turn is all of the new totals; same input but more
             // output is a turn, not a repeat.
             "codex/totals_going_back.jsonl",
             // Before any model, and with a timestamp that does not parse, an event makes no
             // record but still becomes the totals the next event is measured from.
             "codex/totals_without_a_record.jsonl",
             // r1 before any model makes no record yet claims its key; without a response id
             // the timestamp is the key; the totals beside the records are not counted.
             "codex/record_keys.jsonl",
             // Each session_meta sets the flag anew: parent thread id, a source whose
             // subagent is null, one whose subagent is an object, a plain source.
             "codex/sub_thread_flags.jsonl",
             // The file's name is the session until a session_meta; the first turn_context's
             // cwd is the project until then, later ones do not replace it.
             "codex/no_session_meta.jsonl",
         }) {
        const auto path = testing::fixture(fixture);
        testing::expectFixtureRecords(
            fixture, CodexCLISource::parse(path),
            CodexCLISource::parse(testing::readText(path), path.stem().string()));
    }
}

// The four words and what markers() must make of a line, by the plain definition: any word
// anywhere; a usage record anywhere, or, when any word will do, only if it is the first word.
const std::string_view kWords[] = {"\"session_meta\"", "\"turn_context\"", "\"token_count\"",
                                   "\"token_usage_record\""};

CodexCLISource::Markers plainMarkers(std::string_view line, bool anyWillDo) {
    size_t first = std::string_view::npos;
    for (std::string_view word : kWords)
        first = std::min(first, line.find(word));
    const size_t record = line.find(kWords[3]);
    if (first == std::string_view::npos) return {};
    return {true, anyWillDo ? record == first : record != std::string_view::npos};
}

void expectPlainMarkers(const std::string& line) {
    for (bool anyWillDo : {false, true})
        EXPECT_EQ(CodexCLISource::markers(line, anyWillDo), plainMarkers(line, anyWillDo))
            << "anyWillDo=" << anyWillDo << " line=" << line;
}

TEST(CodexCLIMarkers, EachWordAndEachNearMissAtEveryOffset) {
    // Across the 32- and 64-byte steps and into the last bytes of a line, which are
    // searched differently. Amid quotes, a word that lacks its closing quote gets one from the next
    // byte; amid "x" it stays a near miss.
    std::vector<std::string> pieces(std::begin(kWords), std::end(kWords));
    for (std::string_view word : kWords) {
        std::string noClose(word.substr(0, word.size() - 1)), bent(word);
        bent[bent.size() / 2] = 'X';
        pieces.push_back(noClose);
        pieces.push_back(bent);
    }
    pieces.insert(pieces.end(),
                  {"\"token\"", "\"token_\"", "\"tokens\"", "session_meta\"",
                   "\"total_token_usage\"", "\"turn\"", "\"se\"", "\\\"token_count\\\""});
    for (const std::string& piece : pieces) {
        for (char filler : {'x', '"'}) {
            for (size_t length : {piece.size(), piece.size() + 1, 64ul, 65ul, 66ul, 140ul}) {
                for (size_t at = 0; at + piece.size() <= length; ++at) {
                    std::string line(length, filler);
                    line.replace(at, piece.size(), piece);
                    expectPlainMarkers(line);
                }
            }
        }
    }
}

TEST(CodexCLIMarkers, GeneratedLinesGiveWhatAPlainSearchGives) {
    // Several words and near misses in one line, in every order and at every distance, so
    // that the first word and a later usage record fall anywhere across the steps.
    const std::string pieces[] = {"\"session_meta\"",
                                  "\"turn_context\"",
                                  "\"token_count\"",
                                  "\"token_usage_record\"",
                                  "\"session_meta",
                                  "\"token",
                                  "\"token_usage_record",
                                  "\"to",
                                  "\"s",
                                  "\"t",
                                  "\"",
                                  "x",
                                  "\\"};
    std::mt19937 random(20261123);
    for (int n = 0; n < 20000; ++n) {
        std::string line;
        const int count = static_cast<int>(random() % 8);
        for (int i = 0; i < count; ++i) {
            line.append(random() % 40, i % 2 ? '"' : 'y');
            line += pieces[random() % std::size(pieces)];
        }
        expectPlainMarkers(line);
    }
}

}  // namespace
}  // namespace usagekit
