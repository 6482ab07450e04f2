// Which file continues which: rows of files with their size and shape, and the reading order.

#include <gtest/gtest.h>

#include "read/plan.h"

using namespace qellog;

namespace {

// A file of a folder: a one-letter name, its size, its shape; what its writer recorded ('.':
// nothing, '-': facts without a link, else the letter of the file it continues, A the first);
// a thread id seen in its headers (0: none).
struct Row {
    char name; std::uint64_t size; bool headless, endsInside; char facts = '.'; int tid = 0;
};
constexpr bool kHeadless = true, kHeaded = false, kInside = true, kAtEnd = false;

std::string nameOf(int n) { return "QelLog2026-01-01-10-00-00-" + std::to_string(n) + ".log"; }

// The names of `rows` in reading order, "+" before a file read as the continuation of the last,
// "?" before one joined by a guess.
std::string planOf(const std::vector<Row>& rows) {
    std::vector<LogFile> files;
    std::vector<FileShape> shapes(rows.size());
    for (const Row& row : rows) {
        FileShape& shape = shapes[files.size()];
        files.push_back(logFileAt(nameOf(static_cast<int>(files.size()))));
        files.back().size = row.size;
        if (row.facts != '.') {
            parseRecordedFacts(std::string(36, 'b') + " 1 1", "1",
                               row.facts == '-' ? "" : nameOf(row.facts - 'A'), "0 0 UTC\n",
                               files.back().facts);
        }
        shape.headless = row.headless, shape.endsInside = row.endsInside;
        if (row.tid != 0) shape.headThreads = shape.tailThreads = {0ul + row.tid};
    }
    std::string guessed, order;
    const auto guess = [&](const LogFile& f, const std::vector<const LogFile*>&) {
        guessed += rows[f.name[26] - '0'].name;
    };
    for (const PlannedFile& planned : planReading(files, shapes, guess)) {
        const char name = rows[planned.index].name;
        order += (order.empty() ? "" : " ") + std::string(planned.continues ? "+" : "") +
                 (guessed.find(name) != std::string::npos ? "?" : "") + name;
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
        {"two full files that end inside a record: the newer is taken, with a warning",
         {{'A', 100, kHeaded, kInside}, {'B', 100, kHeaded, kInside}, {'C', 30, kHeadless, kAtEnd}},
         "A +B +?C"},
        {"a recorded link passes over another writer's newer full file",
         {{'A', 100, kHeaded, kInside, '-'}, {'X', 100, kHeaded, kInside},
          {'B', 30, kHeadless, kAtEnd, 'A'}},
         "A +B X"},
        {"a recorded link to a file that is gone: the start is a piece",
         {{'A', 100, kHeaded, kInside, '-'}, {'B', 30, kHeadless, kAtEnd, 'Z'}}, "A B"},
        {"a file with facts and no link continues nothing, whatever it starts with",
         {{'A', 100, kHeaded, kInside}, {'B', 30, kHeadless, kAtEnd, '-'}}, "A B"},
        {"without facts, a parent's and a child's splits join by their thread ids",
         {{'P', 100, kHeaded, kInside, '.', 1}, {'C', 100, kHeaded, kInside, '.', 2},
          {'p', 30, kHeadless, kAtEnd, '.', 1}, {'c', 30, kHeadless, kAtEnd, '.', 2}},
         "P +p C +c"},
    };
    for (const auto& c : cases) EXPECT_EQ(c.order, planOf(c.rows)) << c.what;
}

}  // namespace
