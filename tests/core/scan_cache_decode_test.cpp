// The scan cache is read with simdjson's On-Demand parser; every other state file goes
// through the DOM and the strict Decode readers. These tests hold the two to the same
// answers: a mutated cache text is accepted by both with the same entries, or by neither.
// The binary image saved beside the JSON file is held to the same answers as the JSON.
#include "core/json_coding.h"
#include "core/scan_cache.h"
#include "core/store.h"
#include "support/records.h"
#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <random>

namespace usagekit {
namespace fs = std::filesystem;
namespace {

// The cache as the DOM readers decode it: first occurrence of a key wins, any entry or
// record that does not decode fails the whole file.
std::optional<ScanCache> decodedByDOM(const std::string& text) {
    auto document = JSONDocument::parse(text);
    if (!document) return std::nullopt;
    const JSON root = document->root();
    auto version = Decode::integer(root["version"]);
    if (!version || !root["files"].isObject()) return std::nullopt;
    ScanCache cache;
    cache.version = *version;
    for (const auto& [path, value] : root["files"].members()) {
        auto size = Decode::integer(value["size"]);
        auto modified = Decode::number(value["modified"]);
        auto records = JSONCoding<std::vector<UsageRecord>>::decode(value["records"]);
        if (!size || !modified || !records) return std::nullopt;
        cache.files.emplace(std::string(path), ScanCache::Entry{*size, *modified, *records});
    }
    return cache;
}

std::optional<ScanCache> decodedOnDemand(const std::string& text) {
    return ScanCache::decode(simdjson::padded_string(text));
}

// Both readers agree on `text`; returns what they read.
std::optional<ScanCache> agreed(const std::string& text) {
    auto dom = decodedByDOM(text);
    auto onDemand = decodedOnDemand(text);
    EXPECT_EQ(dom.has_value(), onDemand.has_value()) << text;
    if (dom && onDemand) {
        EXPECT_EQ(dom->version, onDemand->version) << text;
        EXPECT_EQ(dom->files, onDemand->files) << text;
    }
    return onDemand;
}

ScanCache sample() {
    using testing::at;
    ScanCache cache;
    UsageRecord full =
        testing::record(Provider::codexCLI, "gpt-5.1-codex", 120, at("2026-03-01T12:34:56Z"));
    full.id = "codex-cli|gpt-5.1-codex|1772323200.0|/home/ana/src/app|rollout-1";
    full.project = "/home/ana/src/app";
    full.session = "rollout-1";
    full.output = 7;
    full.cacheRead = 4096;
    full.cacheWrite = 12;
    full.reasoning = 3;
    full.calls = 4;
    full.reportedCostUSD = 0.125;
    UsageRecord bare = testing::record(Provider("someone-new"), "m\"odel\\é", 1);
    cache.files["/home/ana/.codex/sessions/rollout-1.jsonl"] = {4096, 1772368496.25, {full, bare}};
    cache.files["/home/ana/.claude/projects/p \"q\"/\xF0\x9F\x98\x80.jsonl"] = {0, 0, {}};
    return cache;
}

std::string text(const ScanCache& cache) {
    return jsonData(cache, true);
}

// Replaces the first `from` in `text` with `to`; the test's own text must hold it.
std::string replaced(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) throw std::invalid_argument("not in the text: " + from);
    return text.replace(at, from.size(), to);
}

TEST(ScanCacheDecode, WhatIsSavedReadsBackExactly) {
    const ScanCache cache = sample();
    auto read = agreed(text(cache));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->files, cache.files);
    EXPECT_EQ(read->version, 4);
    // Compact text, as another writer might leave it, reads the same.
    auto compact = agreed(jsonData(cache, false));
    ASSERT_TRUE(compact);
    EXPECT_EQ(compact->files, cache.files);
}

TEST(ScanCacheDecode, CountsBeyond2To53ReadBackExactly) {
    ScanCache cache = sample();
    UsageRecord& record = cache.files.begin()->second.records.front();
    record.input = (int64_t{1} << 53) + 1;
    record.cacheRead = INT64_MAX - record.input - record.output - record.cacheWrite;
    cache.files.begin()->second.size = INT64_MAX;
    auto read = agreed(text(cache));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->files, cache.files);
}

TEST(ScanCacheDecode, AnyBrokenRecordOrEntryFailsTheWholeCache) {
    const std::string good = text(sample());
    const struct {
        const char* from;
        const char* to;
    } broken[] = {
        {"\"calls\" : 4,", ""},                                  // a count missing
        {"\"calls\" : 4", "\"calls\" : 4.5"},                    // not whole
        {"\"calls\" : 4", "\"calls\" : \"4\""},                  // a string
        {"\"calls\" : 4", "\"calls\" : 1e300"},                  // beyond 64 bits
        {"\"input\" : 120", "\"input\" : 9223372036854775807"},  // the total overflows
        {"\"date\" : \"2026-03-01T12:34:56Z\"", "\"date\" : \"yesterday\""},
        {"\"id\" : \"codex-cli\"", "\"name\" : \"codex-cli\""},  // provider without an id
        {"\"kind\" : \"session\",", ""},
        {"\"project\" : \"/home/ana/src/app\"", "\"project\" : 7"},
        {"\"reportedCostUSD\" : 0.125", "\"reportedCostUSD\" : \"0.125\""},
        {"\"size\" : 4096", "\"size\" : -0.5"},
        {"\"modified\" : 1772368496.25", "\"modified\" : true"},
        {"\"records\" : [", "\"records\" : {}, \"x\" : ["},  // not a list
        {"\"version\" : 4", "\"version\" : \"4\""},
        {"\"files\" : {", "\"files\" : [], \"x\" : {"},
    };
    for (const auto& change : broken)
        EXPECT_FALSE(agreed(replaced(good, change.from, change.to))) << change.to;
}

TEST(ScanCacheDecode, NullOptionalsRepeatedKeysAndUnknownKeysReadAsTheDOMReadsThem) {
    const std::string good = text(sample());
    const struct {
        const char* from;
        const char* to;
    } accepted[] = {
        {"\"project\" : \"/home/ana/src/app\"", "\"project\" : null"},
        {"\"session\" : \"rollout-1\"", "\"session\" : null"},
        {"\"reportedCostUSD\" : 0.125", "\"reportedCostUSD\" : null"},
        {"\"calls\" : 4", "\"calls\" : 4, \"calls\" : \"not a number\""},
        {"\"size\" : 4096", "\"size\" : 4096, \"size\" : 1"},
        {"\"version\" : 4", "\"later\" : [1, {\"a\": null}], \"version\" : 4, \"version\" : 3"},
        {"\"id\" : \"codex-cli\"", "\"id\" : \"codex-cli\", \"id\" : 5"},
        {"\"model\" : \"gpt-5.1-codex\"", "\"model\" : \"gpt-5.1-codex\", \"extra\" : {}"},
    };
    for (const auto& change : accepted)
        EXPECT_TRUE(agreed(replaced(good, change.from, change.to))) << change.to;

    // A path that appears twice keeps its first entry.
    std::string twice = replaced(good, "\"files\" : {",
                                 "\"files\" : {\"/home/ana/.codex/sessions/rollout-1.jsonl\" : "
                                 "{\"modified\" : 1, \"records\" : [], \"size\" : 2},");
    auto read = agreed(twice);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->files.at("/home/ana/.codex/sessions/rollout-1.jsonl").size, 2);
}

TEST(ScanCacheDecode, TornTrailingOrRandomlyDamagedTextNeverReadsAsACache) {
    const std::string good = text(sample());
    // Every cut a crash could leave, and text after the object.
    for (size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(decodedOnDemand(good.substr(0, length))) << length;
    EXPECT_FALSE(agreed(good + "x"));
    EXPECT_FALSE(agreed(good + "{}"));
    EXPECT_TRUE(agreed(good + "\n  "));

    // Flipped bytes: whatever either reader makes of them, they make the same of them.
    std::mt19937 random(20261123);
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = good;
        for (int flips = 1 + round % 3; flips > 0; --flips)
            damaged[random() % damaged.size()] = static_cast<char>(random() % 256);
        auto dom = decodedByDOM(damaged);
        auto onDemand = decodedOnDemand(damaged);
        if (dom && onDemand) {
            EXPECT_EQ(dom->files, onDemand->files) << damaged;
        }
        // The DOM checks every byte; On-Demand may pass over damage inside values it
        // never reads (an unknown key's), but never accepts damage to what it reads.
        if (onDemand && !dom) {
            EXPECT_EQ(onDemand->files, sample().files) << damaged;
        }
    }
}

class ScanCacheImage : public testing::TempHome {
  protected:
    // The cache as a scan leaves it: dates fresh from the logs keep fractions of a second,
    // which the JSON file does not.
    static ScanCache scanned() {
        ScanCache cache = sample();
        for (auto& [path, entry] : cache.files)
            for (UsageRecord& record : entry.records)
                record.date = record.date.addingSeconds(0.75);
        return cache;
    }
    static std::optional<ScanCache> fromImageOnDisk() {
        return ScanCache::fromImage(testing::readText(ScanCache::imageFile()),
                                    *ScanCache::identity(ScanCache::file()));
    }
    // What the JSON file alone gives back.
    static std::optional<ScanCache> fromJSON() {
        return ScanCache::decode(simdjson::padded_string(testing::readText(ScanCache::file())));
    }
};

TEST_F(ScanCacheImage, GivesBackExactlyWhatTheJSONFileDoes) {
    ScanCache cache = scanned();
    cache.save();
    const auto image = fromImageOnDisk();
    ASSERT_TRUE(image);
    EXPECT_EQ(image->files, fromJSON()->files);
    EXPECT_EQ(ScanCache::load().files, fromJSON()->files);
    EXPECT_NE(image->files, cache.files);  // the fractions of a second are gone, as in JSON

    // A JSON file without an image (an older Tally wrote it) gets one at the next save,
    // though nothing in it changed.
    fs::remove(ScanCache::imageFile());
    ScanCache loaded = ScanCache::load();
    EXPECT_FALSE(loaded.changed);
    loaded.save();
    ASSERT_TRUE(fs::exists(ScanCache::imageFile()));
    EXPECT_EQ(fromImageOnDisk()->files, fromJSON()->files);
}

TEST_F(ScanCacheImage, IsNotUsedForAnotherFileOrWhenDamaged) {
    ScanCache cache = scanned();
    cache.save();
    const std::string good = testing::readText(ScanCache::imageFile());
    ScanCache::FileIdentity json = *ScanCache::identity(ScanCache::file());
    ASSERT_TRUE(ScanCache::fromImage(good, json));
    for (size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(ScanCache::fromImage(good.substr(0, length), json)) << length;
    for (size_t at = 0; at < good.size(); ++at) {
        std::string flipped = good;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x01);
        EXPECT_FALSE(ScanCache::fromImage(flipped, json)) << at;
    }
    json.inode += 1;
    EXPECT_FALSE(ScanCache::fromImage(good, json));

    // Another writer replaced the JSON file: the image is of the old one, and is passed by.
    Store::saveData(
        replaced(testing::readText(ScanCache::file()), "\"version\" : 4", "\"version\" : 3"),
        ScanCache::file());
    EXPECT_TRUE(ScanCache::load().files.empty());
}

TEST_F(ScanCacheImage, ACacheJSONCannotHoldExactlyGetsNoImage) {
    ScanCache first = scanned();
    first.save();  // leaves an image behind, of a file about to be replaced
    const struct {
        const char* fault;
        void (*apply)(UsageRecord&);
    } faults[] = {
        {"model not UTF-8", [](UsageRecord& r) { r.model = "caf\xE9"; }},
        {"date beyond ISO 8601", [](UsageRecord& r) { r.date = Date{1e13}; }},
    };
    for (const auto& fault : faults) {
        ScanCache cache = scanned();
        fault.apply(cache.files.begin()->second.records.emplace_back(
            testing::record(Provider::claudeCode, "m")));
        cache.save();
        EXPECT_FALSE(fs::exists(ScanCache::imageFile())) << fault.fault;
        const ScanCache loaded = ScanCache::load();
        if (auto json = fromJSON())
            EXPECT_EQ(loaded.files, json->files) << fault.fault;
        else
            EXPECT_TRUE(loaded.files.empty()) << fault.fault;
    }
}

}  // namespace
}  // namespace usagekit
