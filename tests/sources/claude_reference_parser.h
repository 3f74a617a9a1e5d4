// Claude Code's line rules as they stood while every usage line was parsed into a whole
// document: the reference the On-Demand reader is held to, line for line.
#pragma once

#include "core/checked.h"
#include "core/json.h"
#include "core/scan.h"
#include "core/uuid.h"
#include "sources/log_source.h"

#include <string>
#include <string_view>
#include <vector>

namespace usagekit::testing {

class ClaudeReferenceParser {
  public:
    // The records of a log's text, split into lines as ClaudeCodeSource::parse splits it.
    static std::vector<UsageRecord> parse(std::string_view text) {
        ClaudeReferenceParser parser;
        Scan::forEachLine(text, [&](std::string_view line) { parser.line(line); });
        return parser.m_folder.take();
    }

  private:
    void line(std::string_view text) {
        if (!Scan::contains(text, "\"usage\"")) return;
        auto root = m_parser.parse(text);
        if (!root || !root->isObject()) return;
        JSON message = (*root)["message"];
        if (!message.isObject()) return;
        JSON usage = message["usage"];
        if (!usage.hasValue()) return;

        std::string key;
        if (auto requestId = (*root)["requestId"].string()) {
            if (!m_seen.insert(*requestId)) return;
            key = *requestId;
        } else if (auto uuid = (*root)["uuid"].string()) {
            if (!m_seen.insert(*uuid)) return;
            key = *uuid;
        } else {
            key = randomUUID();
        }

        auto timestamp = (*root)["timestamp"].string();
        if (!timestamp) return;
        auto date = Scan::date(*timestamp);
        if (!date) return;

        UsageRecord record;
        try {
            record.input = usage["input_tokens"].integer();
            record.output = usage["output_tokens"].integer();
            record.cacheRead = usage["cache_read_input_tokens"].integer();
            record.cacheWrite = usage["cache_creation_input_tokens"].integer();
        } catch (const OutOfRange&) {
            return;
        }
        record.id = std::move(key);
        record.date = *date;
        record.provider = Provider::claudeCode;
        record.model = message["model"].string().value_or("unknown");
        if (auto cwd = (*root)["cwd"].string()) record.project = std::string(*cwd);
        if (auto session = (*root)["sessionId"].string()) record.session = std::string(*session);
        record.kind = (*root)["isSidechain"].boolean() ? "subagent" : "session";
        record.calls = 1;
        if (Scan::hasTokens(record)) m_folder.add(std::move(record));
    }

    JSONParser m_parser;
    SeenKeys m_seen;
    Scan::Folder m_folder;
};

}  // namespace usagekit::testing
