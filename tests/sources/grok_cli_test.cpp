#include "sources/grok_cli.h"

#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::describe;

class GrokCLISourceTest : public testing::TempHome {
  protected:
    testing::ScopedTimeZone m_utc{"UTC0"};
};

TEST_F(GrokCLISourceTest, ScanMakesOneRecordPerModelOfEachCompletedTurn) {
    copyFixture("grok/two_models_per_turn.jsonl", ".grok/sessions/my%20app/sess-a1/updates.jsonl");
    // A project name that does not percent-decode stands as it is. The turn whose first
    // entry holds 1e300 keeps its other entry; junk and a cut-off last line drop.
    copyFixture("grok/cut_mid_line.jsonl", ".grok/sessions/bad%zzname/sess-b2/updates.jsonl");
    ScanCache cache;
    auto records = GrokCLISource().scan(cache);
    // grok-4: two turns, the second without modelCalls (1 call) and with "50" as a string.
    // grok-code-fast-1: no calls reported, more cached than sent, no cost reported.
    EXPECT_EQ(describe(records),
              (std::vector<std::string>{
                  "grok-cli|grok-3-mini|1777852800.0|bad%zzname|sess-b2 @2026-05-04T10:20:00Z "
                  "session calls=1 in=200 out=30 cr=100 cw=0 rs=5 cost=0.2",
                  "grok-cli|grok-4|1777766400.0|my app|sess-a1 @2026-05-03T10:20:00Z "
                  "session calls=3 in=900 out=350 cr=800 cw=40 rs=150 cost=3.0",
                  "grok-cli|grok-code-fast-1|1777766400.0|my app|sess-a1 @2026-05-03T09:20:00Z "
                  "session calls=1 in=0 out=20 cr=120 cw=0 rs=0",
              }));
    EXPECT_EQ(cache.files.size(), 2u);
}

TEST_F(GrokCLISourceTest, TimestampIsPlainSecondsAndMissingMeansZero) {
    const std::string usage = R"("usage":{"modelUsage":{"grok-4":{"inputTokens":10}}})";
    auto path = write(".grok/sessions/p/s/updates.jsonl",
                      R"({"params":{"update":{"sessionUpdate":"turn_completed",)" + usage +
                          "}}}\n" + R"({"timestamp":"1777800000","params":{"update":{)" +
                          R"("sessionUpdate":"turn_completed",)" + usage + "}}}\n" +
                          R"({"timestamp":1e300,"params":{"update":{)" +
                          R"("sessionUpdate":"turn_completed",)" + usage + "}}}\n");
    EXPECT_EQ(describe(GrokCLISource::parse(path)),
              (std::vector<std::string>{
                  "grok-cli|grok-4|0.0|p|s @1970-01-01T00:00:00Z session calls=1 in=10 out=0 "
                  "cr=0 cw=0 rs=0",
                  "grok-cli|grok-4|1777766400.0|p|s @2026-05-03T09:20:00Z session calls=1 "
                  "in=10 out=0 cr=0 cw=0 rs=0",
              }));
}

TEST_F(GrokCLISourceTest, OnlyNamedUpdateFilesAreRead) {
    const std::string line =
        R"({"timestamp":1777800000,"params":{"update":{"sessionUpdate":"turn_completed",)"
        R"("usage":{"modelUsage":{"grok-4":{"inputTokens":10}}}}}})"
        "\n";
    write(".grok/sessions/p/s/updates.jsonl", line);
    write(".grok/sessions/p/s/chat-updates.jsonl", line);
    write(".grok/sessions/p/s/updates.jsonl.bak", line);
    write(".grok/sessions/p/s/messages.jsonl", line);
    ScanCache cache;
    auto records = GrokCLISource().scan(cache);
    ASSERT_EQ(records.size(), 2u);  // updates.jsonl and chat-updates.jsonl
    EXPECT_EQ(records[0].calls + records[1].calls, 2);
}

}  // namespace
}  // namespace usagekit
