#include "core/path_map.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace usagekit {
namespace {

std::string pathOf(int i) {
    return "/home/dev/.claude/projects/-home-dev-src-app/" + std::to_string(i) + ".jsonl";
}

TEST(PathMapTest, FindsEveryPathThroughGrowthAndKeepsTheFirstValue) {
    PathMap<int> map;
    for (int i = 0; i < 3000; ++i)
        EXPECT_TRUE(map.emplace(pathOf(i), i).second);
    EXPECT_EQ(map.size(), 3000u);
    const auto [value, added] = map.emplace(pathOf(17), -1);
    EXPECT_FALSE(added);
    EXPECT_EQ(*value, 17);
    for (int i = 0; i < 3000; ++i) {
        const int* found = map.find(pathOf(i));
        ASSERT_NE(found, nullptr) << i;
        EXPECT_EQ(*found, i);
    }
    EXPECT_EQ(map.find(pathOf(3000)), nullptr);
    EXPECT_EQ(map.find(pathOf(1).substr(1)), nullptr);
    EXPECT_THROW(map.at("/nowhere"), std::out_of_range);
    // Items come back in the order they were added.
    int expected = 0;
    for (const auto& [path, value] : map)
        EXPECT_EQ(value, expected++);

    map["/new"] = 5;
    map["/new"] += 1;
    EXPECT_EQ(map.at("/new"), 6);
    EXPECT_TRUE(PathMap<int>().find("/") == nullptr);
}

TEST(PathMapTest, PathsOutliveTheirSourceAndSurviveAMove) {
    PathMap<int> moved;
    {
        PathMap<int> map;
        auto text = std::make_shared<std::string>("/kept/a/kept/b");
        map.holdText(text);
        const std::string_view kept = *text;
        map.emplaceKept(kept.substr(0, 7), 1);
        map.emplaceKept(kept.substr(7), 2);
        text.reset();  // the map holds the text now
        std::string copied = "/copied/c";
        map.emplace(copied, 3);
        copied.assign(copied.size(), 'x');  // the map's copy must not change with it
        moved = std::move(map);
    }
    EXPECT_EQ(moved.at("/kept/a"), 1);
    EXPECT_EQ(moved.at("/kept/b"), 2);
    EXPECT_EQ(moved.at("/copied/c"), 3);
    EXPECT_EQ(moved.begin()->first, "/kept/a");
}

TEST(PathMapTest, EraseIfKeepsTheRestFindableAndInOrder) {
    PathMap<int> map;
    for (int i = 0; i < 100; ++i)
        map.emplace(pathOf(i), i);
    EXPECT_EQ(map.eraseIf([](const auto& item) { return item.second % 3 != 0; }), 66u);
    EXPECT_EQ(map.eraseIf([](const auto&) { return false; }), 0u);
    ASSERT_EQ(map.size(), 34u);
    int expected = 0;
    for (const auto& [path, value] : map) {
        EXPECT_EQ(value, expected);
        EXPECT_EQ(path, pathOf(expected));
        expected += 3;
    }
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(map.contains(pathOf(i)), i % 3 == 0) << i;
    EXPECT_TRUE(map.emplace(pathOf(1), 1).second);
    EXPECT_EQ(map.at(pathOf(1)), 1);

    // Equal maps hold the same paths and values, in whatever order.
    PathMap<int> reversed;
    for (auto item = map.end(); item != map.begin();) {
        --item;
        reversed.emplace(item->first, item->second);
    }
    EXPECT_EQ(reversed, map);
    reversed.at(pathOf(1)) = 2;
    EXPECT_FALSE(reversed == map);
}

}  // namespace
}  // namespace usagekit
