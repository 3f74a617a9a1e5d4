// A temporary home with one small log of every local tool, for end-to-end tests of the
// terminal commands. The logs are fixtures from tests/data; their records fall between
// 2025-06-01 and 2025-06-03 UTC, except Copilot's, which is dated in 2099.
#pragma once

#include "support/temp_home.h"

namespace usagekit::testing {

class EveryToolHome : public TempHome {
  protected:
    void writeHomeWithEveryTool() {
        // Claude Code: request r1 written as two content blocks, then r2. Codex: running
        // totals, the second event counted as its difference. Grok: the tool's own cost, in
        // billionths of a dollar. Gemini: the same message written twice, the last counts.
        // Copilot: a record from the future counts in today and this month.
        copyFixture("claude/request_split_in_two_blocks.jsonl", ".claude/projects/-w-app/s1.jsonl");
        copyFixture("codex/two_running_totals.jsonl",
                    ".codex/sessions/2025/06/02/rollout-2025-06-02T09-00-00-abc.jsonl");
        copyFixture("grok/cost_in_ticks.jsonl", ".grok/sessions/my%20proj/sess1/updates.jsonl");
        copyFixture("gemini/message_written_twice.jsonl",
                    ".gemini/tmp/abc/chats/session-2025-06-03-ab12cd34.jsonl");
        copyFixture("copilot/record_from_the_future.jsonl", ".copilot/session-state/c.jsonl");
    }
};

}  // namespace usagekit::testing
