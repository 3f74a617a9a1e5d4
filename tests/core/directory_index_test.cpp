#include "core/directory_index.h"

#include "core/binary_image.h"
#include "core/scan.h"

#include "support/temp_home.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace usagekit {
namespace fs = std::filesystem;
namespace {

int64_t changeTime(const fs::path& directory) {
    struct statx info {};
    if (::statx(AT_FDCWD, directory.c_str(), 0, STATX_CTIME, &info) != 0)
        throw std::runtime_error("cannot stat " + directory.string());
    return static_cast<int64_t>(info.stx_ctime.tv_sec) * 1'000'000'000 + info.stx_ctime.tv_nsec;
}

std::vector<std::string> relative(const std::vector<std::string>& found, const fs::path& base) {
    std::vector<std::string> names;
    for (const std::string& file : found)
        names.push_back(file.substr(base.string().size()));
    return names;
}

// A listing of `entries`, made as a walk makes one.
DirectoryIndex::Listing listing(int64_t changed,
                                const std::vector<DirectoryIndex::Entry>& entries) {
    DirectoryIndex::ListingBuilder read;
    for (const DirectoryIndex::Entry& entry : entries)
        read.add(entry.name, entry.isDirectory);
    return std::move(read).done(changed);
}

// An index that says `directory` held `entries` when its change time was `changed`.
DirectoryIndex recorded(const fs::path& directory, int64_t changed,
                        std::vector<DirectoryIndex::Entry> entries) {
    DirectoryIndex index;
    index.listed(directory.string(), listing(changed, std::move(entries)),
                 changed + DirectoryIndex::kSettledNanoseconds + 1);
    return *DirectoryIndex::decode(index.encode());
}

class DirectoryIndexWalk : public testing::TempHome {};

TEST_F(DirectoryIndexWalk, AnUnchangedDirectoryIsNotListedAgainAndAChangedOneIs) {
    write("p/a.jsonl", "");
    write("p/sub/b.jsonl", "");
    const fs::path p = home / "p";
    // The recorded listing names a file that is not there: only a walk that trusts the
    // index reports it, which shows the directory was not read again.
    DirectoryIndex index = recorded(p, changeTime(p), {{"ghost.jsonl", false}, {"sub", true}});
    EXPECT_EQ(relative(Scan::files(p, ".jsonl", &index), home),
              (std::vector<std::string>{"/p/ghost.jsonl", "/p/sub/b.jsonl"}));

    // Once an entry is added the change time moves and the directory is read as it is.
    // File systems keep coarse times: entries are added until the time has moved (on a file
    // system with whole seconds that takes up to one).
    const int64_t before = changeTime(p);
    DirectoryIndex stale = recorded(p, before, {{"ghost.jsonl", false}});
    write("p/c.jsonl", "");
    for (int n = 0; changeTime(p) == before && n < 300; ++n) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        fs::remove(home / "p/c.jsonl");
        write("p/c.jsonl", "");
    }
    ASSERT_NE(changeTime(p), before);
    auto found = relative(Scan::files(p, ".jsonl", &stale), home);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"/p/a.jsonl", "/p/c.jsonl", "/p/sub/b.jsonl"}));
}

TEST_F(DirectoryIndexWalk, WalksWithAndWithoutAnIndexFindTheSameFilesInTheSameOrder) {
    for (int i = 0; i < 40; ++i)
        write("p/s" + std::to_string(i % 7) + "/f" + std::to_string(i) + ".jsonl", "");
    write("p/.hidden/x.jsonl", "");
    fs::create_directory_symlink(home / "p" / "s1", home / "p" / "link");
    fs::create_directory_symlink(home / "p", home / "root-link");  // the root may be a link
    DirectoryIndex index;
    const auto plain = Scan::files(home / "root-link", ".jsonl");
    EXPECT_EQ(plain.size(), 40u);
    EXPECT_EQ(Scan::files(home / "root-link", ".jsonl", &index), plain);
    // Directories made a moment ago have not settled: their listings are not kept.
    EXPECT_EQ(index.keptCount(), 0u);
    EXPECT_FALSE(index.changed());
}

TEST(DirectoryIndex, KeepsOnlySettledListingsAndNoticesWhatChanged) {
    const int64_t now = 2'000'000'000'000'000'000;
    const int64_t settled = now - DirectoryIndex::kSettledNanoseconds - 1;
    DirectoryIndex first;
    first.listed("/a", listing(settled, {{"x.jsonl", false}}), now);
    first.listed("/b", listing(now - 1000, {{"y.jsonl", false}}), now);  // changed a moment ago
    first.listed("/c", listing(0, {{"z.jsonl", false}}), now);           // its listing broke off
    // Names are bytes: one that is not UTF-8 comes back as it was.
    first.listed("/caf\xE9", listing(settled, {{"caf\xE9.jsonl", false}}), now);
    EXPECT_TRUE(first.changed());
    EXPECT_EQ(first.keptCount(), 2u);

    auto loaded = DirectoryIndex::decode(first.encode());
    ASSERT_TRUE(loaded);
    ASSERT_TRUE(loaded->reuse("/a", settled));
    EXPECT_EQ(loaded->reuse("/a", settled)->entries[0].name, "x.jsonl");  // twice in one scan
    EXPECT_TRUE(loaded->changed());  // "/caf\xE9" was not walked: the next scan loses it
    ASSERT_TRUE(loaded->reuse("/caf\xE9", settled));
    EXPECT_EQ(loaded->reuse("/caf\xE9", settled)->entries[0].name, "caf\xE9.jsonl");
    EXPECT_FALSE(loaded->changed());
    // Another source listing "/a" anew in the same scan leaves the listing a walk of "/a"
    // may still be reading as it was.
    const DirectoryIndex::Listing* walked = loaded->reuse("/a", settled);
    loaded->listed("/a", listing(settled + 1, {{"other.jsonl", false}}), now);
    EXPECT_EQ(walked->entries[0].name, "x.jsonl");
    EXPECT_EQ(loaded->reuse("/a", settled), walked);

    auto moved = DirectoryIndex::decode(first.encode());
    EXPECT_FALSE(moved->reuse("/a", settled + 1));  // its time moved: listed again
    EXPECT_TRUE(moved->changed());                  // and the old listing is gone
}

TEST_F(DirectoryIndexWalk, ADeferredIndexIsReadByItsFirstUseAndUnusedWritesNothing) {
    const int64_t settled = 1'000'000'000;
    DirectoryIndex first;
    first.listed("/a", listing(settled, {{"x.jsonl", false}}),
                 2 * settled + DirectoryIndex::kSettledNanoseconds);
    first.save();
    const std::string saved = testing::readText(DirectoryIndex::file());

    // A scan whose walks never asked (no log directory at all) leaves the file as it was.
    DirectoryIndex unused = DirectoryIndex::loadWhenFirstUsed();
    EXPECT_FALSE(unused.changed());
    unused.save();
    EXPECT_EQ(testing::readText(DirectoryIndex::file()), saved);

    DirectoryIndex used = DirectoryIndex::loadWhenFirstUsed();
    ASSERT_TRUE(used.reuse("/a", settled));
    EXPECT_EQ(used.reuse("/a", settled)->entries[0].name, "x.jsonl");
    EXPECT_FALSE(used.changed());
}

TEST(DirectoryIndex, ADamagedOrForeignFileReadsAsAnEmptyIndex) {
    DirectoryIndex index;
    index.listed("/a \"q\"", listing(5, {{"x.jsonl", false}, {"sub", true}}),
                 6 + DirectoryIndex::kSettledNanoseconds);
    const std::string good = index.encode();
    auto loaded = DirectoryIndex::decode(good);
    ASSERT_TRUE(loaded);
    ASSERT_TRUE(loaded->reuse("/a \"q\"", 5));
    EXPECT_EQ(loaded->reuse("/a \"q\"", 5)->entries,
              (std::vector<DirectoryIndex::Entry>{{"x.jsonl", false}, {"sub", true}}));

    for (size_t length = 0; length < good.size(); ++length)
        EXPECT_FALSE(DirectoryIndex::decode(good.substr(0, length))) << length;
    for (size_t at = 0; at < good.size(); ++at) {
        std::string flipped = good;
        flipped[at] = static_cast<char>(flipped[at] ^ 0x10);
        EXPECT_FALSE(DirectoryIndex::decode(flipped)) << at;
    }
    EXPECT_FALSE(DirectoryIndex::decode(good + "x"));

    // The checksum guards against damage, not forgery: names that would lead the walk
    // elsewhere than the entry are refused even in an intact image.
    for (std::string_view name :
         {std::string_view("x/y"), std::string_view(".."), std::string_view(".hidden"),
          std::string_view("a\0b", 3), std::string_view()}) {
        BinaryImage::Writer forged;
        forged.u32(1);
        forged.text("/a");
        forged.i64(5);
        forged.u32(1);
        forged.text(name);
        forged.u8(1);
        EXPECT_FALSE(DirectoryIndex::decode(forged.sealed("TLYDIRS1"))) << name;
    }
}

}  // namespace
}  // namespace usagekit
