#include "engine/NoteValueTable.h"

#include <gtest/gtest.h>

#include <climits>

namespace varitap {
namespace {

TEST(NoteValueTableTest, IndicesOutsideTheTableAreInvalidWithOneBeat) {
    for (int index : {25, 26, 1000, INT_MAX, -1, -25, INT_MIN}) {
        EXPECT_STREQ(noteValueName(index), "Invalid") << index;
        EXPECT_EQ(noteValueBeats(index), 1.0f) << index;
    }
}

}  // namespace
}  // namespace varitap
