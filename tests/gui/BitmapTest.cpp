#include "gui/Bitmap.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "XServer.h"

namespace varitap::gui {
namespace {

class BitmapTest : public ::testing::Test {
protected:
    void TearDown() override { Bitmap::setResourceDirectory(""); }
    test::TempDir dir;
};

TEST_F(BitmapTest, LoadsByResourceNumberTryingEachType) {
    char name[16];
    Bitmap::resourceName(123456, name, sizeof name);  // at least five digits
    EXPECT_STREQ(name, "bmp123456");
    ASSERT_TRUE(test::writeBandsPng(dir.path() + "/bmp00101.png", 21, 40,
                                    {kWhiteColor, kBlackColor}));
    // PNG data under another of the tried types loads as well.
    ASSERT_TRUE(test::writeBandsPng(dir.path() + "/bmp00200.bmp", 5, 6, {kWhiteColor}));
    // A file that is no PNG leaves the bitmap empty.
    std::ofstream(dir.path() + "/bmp00300.png") << "not a picture";
    Bitmap::setResourceDirectory(dir.path());

    Bitmap a(101);
    EXPECT_TRUE(a.isLoaded());
    EXPECT_EQ(a.width(), 21);
    EXPECT_EQ(a.height(), 40);
    Bitmap b(200);
    EXPECT_TRUE(b.isLoaded());
    EXPECT_EQ(b.width(), 5);
    Bitmap bad(300);
    EXPECT_FALSE(bad.isLoaded());
    EXPECT_EQ(bad.width(), 0);
    EXPECT_FALSE(Bitmap(3).isLoaded());

    // By path; a failed reload empties the bitmap rather than keeping stale art.
    Bitmap byPath(dir.path() + "/bmp00101.png");
    EXPECT_EQ(byPath.height(), 40);
    EXPECT_FALSE(byPath.loadFile(dir.path() + "/nothing.png"));
    EXPECT_FALSE(byPath.isLoaded());
    EXPECT_EQ(byPath.width(), 0);
}

TEST_F(BitmapTest, WithoutOverrideLooksInTheBundleAndFailsQuietly) {
    // The test program is not inside a bundle: the lookup finds nothing.
    EXPECT_FALSE(Bitmap(99999).isLoaded());
}

}  // namespace
}  // namespace varitap::gui
