// Which file continues which: rows of files with their size and shape, and the reading order.

#include <gtest/gtest.h>

#include "read/plan.h"

using namespace qellog;

namespace {

// A file of a folder: a one-letter name, its size, and its shape.
struct Row { char name; std::uint64_t size; bool headless, endsInside; };
constexpr bool kHeadless = true, kHeaded = false, kInside = true, kAtEnd = false;

// The names of `rows` in reading order, "+" before a file read as the continuation of the last.
std::string planOf(const std::vector<Row>& rows) {
    std::vector<LogFile> files;
    std::vector<FileShape> shapes;
    for (const Row& row : rows) {
        files.push_back(logFileAt("QelLog2026-01-01-10-00-00-" + std::to_string(files.size()) +
                                  ".log"));
        files.back().size = row.size;
        shapes.push_back({row.headless, row.endsInside});
    }
    std::string order;
    for (const PlannedFile& planned : planReading(files, shapes)) {
        order += (order.empty() ? "" : " ") + std::string(planned.continues ? "+" : "") +
                 rows[planned.index].name;
    }
    return order;
}

TEST(PlanTest, ReadsEachSplitRightAfterTheFileItContinuesAndJoinsNothingElse) {
    const struct { const char* what; std::vector<Row> rows; const char* order; } cases[] = {
        {"a split", {{'A', 100, kHeaded, kInside}, {'B', 30, kHeadless, kAtEnd}}, "A +B"},
        {"two splits in a row",
         {{'A', 100, kHeaded, kInside}, {'B', 100, kHeadless, kInside},
          {'C', 9, kHeadless, kAtEnd}},
         "A +B +C"},
        {"another writer's file sorts between the parts",
         {{'A', 100, kHeaded, kInside}, {'X', 50, kHeaded, kAtEnd}, {'B', 30, kHeadless, kAtEnd}},
         "A +B X"},
        {"the split fell right after an empty line of the text",
         {{'A', 100, kHeaded, kAtEnd}, {'B', 30, kHeadless, kAtEnd}}, "A +B"},
        {"the split fell right before a text that looks like a header",
         {{'A', 100, kHeaded, kInside}, {'B', 30, kHeaded, kAtEnd}}, "A +B"},
        {"a full file that ends at a record end, then a header",
         {{'A', 100, kHeaded, kAtEnd}, {'B', 30, kHeaded, kAtEnd}}, "A B"},
        {"a headless file right after a torn one: its start is lost",
         {{'A', 100, kHeaded, kAtEnd}, {'T', 60, kHeaded, kInside}, {'B', 30, kHeadless, kAtEnd}},
         "A T B"},
        {"a file holding only a line that is no record, after one that ends a record",
         {{'A', 100, kHeaded, kAtEnd}, {'B', 30, kHeadless, kInside}}, "A B"},
        {"a second headless file: the split is continued already",
         {{'A', 100, kHeaded, kInside}, {'B', 30, kHeadless, kAtEnd}, {'C', 9, kHeadless, kAtEnd}},
         "A +B C"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.order, planOf(c.rows)) << c.what;
}

}  // namespace
