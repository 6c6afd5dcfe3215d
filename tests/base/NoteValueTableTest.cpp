#include "engine/NoteValueTable.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace varitap {
namespace {

TEST(NoteValueTableTest, TheTwentyFiveRowsInTheTablesOwnOrder) {
    struct Row {
        const char* name;
        double quarterNotes;
    };
    const Row rows[] = {
        {"1/256", 0.015625}, {"1/128", 0.03125}, {"1/64", 0.0625},  {"1/32T", 1.0 / 12}, {"1/32", 0.125},
        {"1/32D", 0.1875},   {"1/16T", 1.0 / 6}, {"1/16", 0.25},    {"1/16D", 0.375},    {"1/8T", 1.0 / 3},
        {"1/8", 0.5},        {"1/8D", 0.75},     {"1/4T", 2.0 / 3}, {"1/4", 1.0},        {"1/4D", 1.5},
        {"1/2T", 4.0 / 3},   {"1/2", 2.0},       {"1/2D", 3.0},     {"1T", 8.0 / 3},     {"1", 4.0},
        {"1D", 6.0},         {"2T", 16.0 / 3},   {"2", 8.0},        {"2D", 12.0},        {"4", 16.0},
    };
    ASSERT_EQ(noteValueCount(), 25);
    for (int i = 0; i < 25; ++i) {
        EXPECT_EQ(std::string(noteValueName(i)), rows[i].name) << "row " << i;
        // Thirds are the nearest single-precision values, exactly.
        EXPECT_EQ(noteValueBeats(i), static_cast<float>(rows[i].quarterNotes)) << "row " << i;
    }
}

TEST(NoteValueTableTest, IndicesOutsideTheTableAreInvalidWithOneBeat) {
    for (int index : {25, 26, 1000, INT_MAX, -1, -25, INT_MIN}) {
        EXPECT_STREQ(noteValueName(index), "Invalid") << index;
        EXPECT_EQ(noteValueBeats(index), 1.0f) << index;
    }
}

}  // namespace
}  // namespace varitap
