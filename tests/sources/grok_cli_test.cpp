#include "sources/grok_cli.h"

#include "support/record_text.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

namespace usagekit {
namespace {

using testing::describe;

using GrokCLISourceTest = testing::UTCHome;

TEST_F(GrokCLISourceTest, ScanMakesOneRecordPerModelOfEachCompletedTurn) {
    copyFixture("grok/two_models_per_turn.jsonl", ".grok/sessions/my%20app/sess-a1/updates.jsonl");
    // A project name that does not percent-decode stands as it is.
    copyFixture("grok/cut_mid_line.jsonl", ".grok/sessions/bad%zzname/sess-b2/updates.jsonl");
    copyFixture("grok/odd_timestamps.jsonl", ".grok/sessions/p/s/updates.jsonl");
    // Only names ending in "updates.jsonl" are update streams.
    copyFixture("grok/odd_timestamps.jsonl", ".grok/sessions/p/s/messages.jsonl");
    copyFixture("grok/odd_timestamps.jsonl", ".grok/sessions/p/s/updates.jsonl.bak");
    ScanCache cache;
    EXPECT_EQ(describe(GrokCLISource().scan(cache).all()),
              (std::vector<std::string>{
                  // Of a turn whose grok-4 entry holds 1e300 only that entry drops; junk and
                  // a cut-off last line drop too.
                  "grok-cli|grok-3-mini|1777852800.0|bad%zzname|sess-b2 @2026-05-04T10:20:00Z "
                  "session calls=1 in=200 out=30 cr=100 cw=0 rs=5 cost=0.2",
                  // No timestamp reads as 0; a numeric string is seconds as they stand; a
                  // timestamp of 1e300 drops its turn.
                  "grok-cli|grok-4|0.0|p|s @1970-01-01T00:00:00Z session calls=1 in=1 out=0 "
                  "cr=0 cw=0 rs=0",
                  // Two turns; the second reports no modelCalls (1 call) and "50" as a
                  // string. The cancelled turn between them carries usage but counts nothing.
                  "grok-cli|grok-4|1777766400.0|my app|sess-a1 @2026-05-03T10:20:00Z "
                  "session calls=3 in=900 out=350 cr=800 cw=40 rs=150 cost=3.0",
                  "grok-cli|grok-4|1777766400.0|p|s @2026-05-03T09:20:00Z session calls=1 in=2 "
                  "out=0 cr=0 cw=0 rs=0",
                  // modelCalls 0, more read from cache than sent, no cost reported.
                  "grok-cli|grok-code-fast-1|1777766400.0|my app|sess-a1 @2026-05-03T09:20:00Z "
                  "session calls=1 in=0 out=20 cr=120 cw=0 rs=0",
              }));
    EXPECT_EQ(cache.files.size(), 3u);
}

}  // namespace
}  // namespace usagekit
