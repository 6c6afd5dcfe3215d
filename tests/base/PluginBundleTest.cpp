#include "persistence/PluginBundle.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ProbeBundle.h"

namespace varitap {
namespace {

using test::LoadedProbe;
using test::ProbeBundle;
using test::realPath;
using test::TempDir;

// Each case gets its own copy of the probe: the loader recognises a file it
// has already loaded and would answer with the path of the first load.
TEST(PluginBundleTest, FindsItsBundleFromTheLoadedLibrary) {
    TempDir root;
    ProbeBundle bundle(root.path(), "Plain");
    ASSERT_TRUE(bundle.ok());
    LoadedProbe probe(bundle.library());
    ASSERT_TRUE(probe.ok()) << dlerror();
    EXPECT_EQ(probe.bundle(), realPath(bundle.bundle()));
}

TEST(PluginBundleTest, FindsTheRealBundleThroughASymlinkedLibrary) {
    // The user links the .so into a plug-in folder; the bundle is where the
    // file really lives, not three folders above the link.
    TempDir root;
    ASSERT_TRUE(test::makeFolders(root / "installed"));
    ASSERT_TRUE(test::makeFolders(root / "plugins/vst"));
    ProbeBundle bundle(root / "installed", "Linked");
    ASSERT_TRUE(bundle.ok());
    const std::string link = root / "plugins/vst/Linked.so";
    ASSERT_EQ(::symlink(bundle.library().c_str(), link.c_str()), 0);
    LoadedProbe probe(link);
    ASSERT_TRUE(probe.ok()) << dlerror();
    EXPECT_EQ(probe.bundle(), realPath(bundle.bundle()));
}

TEST(PluginBundleTest, FindsTheRealBundleThroughASymlinkedBundleAndARelativePath) {
    TempDir root;
    ProbeBundle bundle(root.path(), "Target");
    ASSERT_TRUE(bundle.ok());
    const std::string linkedBundle = root / "Alias.vst";
    ASSERT_EQ(::symlink(bundle.bundle().c_str(), linkedBundle.c_str()), 0);
    {
        LoadedProbe probe(linkedBundle + "/Contents/" VARITAP_ARCH_DIR "/Target.so");
        ASSERT_TRUE(probe.ok()) << dlerror();
        EXPECT_EQ(probe.bundle(), realPath(bundle.bundle()));
    }

    ProbeBundle second(root.path(), "Relative");
    ASSERT_TRUE(second.ok());
    char previous[PATH_MAX];
    ASSERT_NE(::getcwd(previous, sizeof(previous)), nullptr);
    ASSERT_EQ(::chdir(root.path().c_str()), 0);
    std::string found;
    {
        LoadedProbe probe("./Relative.vst/Contents/" VARITAP_ARCH_DIR "/Relative.so");
        if (probe.ok()) found = probe.bundle();
    }
    ASSERT_EQ(::chdir(previous), 0);
    EXPECT_EQ(found, realPath(second.bundle()));
}

TEST(PluginBundleTest, OutsideABundleItIsThreeFoldersAboveTheProgram) {
    std::string expected = realPath("/proc/self/exe");
    for (int i = 0; i < 3; ++i) expected = expected.substr(0, expected.rfind('/'));
    EXPECT_EQ(copyPluginBundle(), expected);
}

TEST(PluginBundleTest, ResourcesByNameAndByTypeInAFolder) {
    TempDir root;
    const std::string bundle = root / "R.vst";
    const std::string resources = bundle + "/Contents/Resources";
    ASSERT_TRUE(test::makeFolders(resources + "/Backgrounds/folder.png"));
    ASSERT_TRUE(test::writeFile(resources + "/varitap.factory.presets.xml", "<x/>"));
    ASSERT_TRUE(test::makeFolders(resources + "/directory.xml"));
    for (const char* name : {"b.png", "a.png", "a.b.png", "notes.txt", ".png", "png", "Cpng", "z.png.txt"})
        ASSERT_TRUE(test::writeFile(resources + "/Backgrounds/" + name, "data"));

    EXPECT_EQ(bundleResourcePath(bundle, "varitap.factory.presets", "xml"),
              resources + "/varitap.factory.presets.xml");
    EXPECT_EQ(bundleResourcePath(bundle, "missing", "xml"), "");
    EXPECT_EQ(bundleResourcePath(bundle, "directory", "xml"), "");  // not a file
    EXPECT_EQ(bundleResourcePath("", "varitap.factory.presets", "xml"), "");
    EXPECT_EQ(bundleResourcePath(bundle, nullptr, "xml"), "");

    const std::vector<std::string> expected = {resources + "/Backgrounds/a.b.png", resources + "/Backgrounds/a.png",
                                               resources + "/Backgrounds/b.png"};
    EXPECT_EQ(bundleResources(bundle, "png", "Backgrounds"), expected);
    EXPECT_EQ(bundleResources(bundle, "xml", nullptr),
              std::vector<std::string>{resources + "/varitap.factory.presets.xml"});
    EXPECT_TRUE(bundleResources(bundle, "png", "Missing").empty());
    EXPECT_TRUE(bundleResources("", "png", "Backgrounds").empty());
    EXPECT_TRUE(bundleResources(root / "none.vst", "png", "Backgrounds").empty());
}

}  // namespace
}  // namespace varitap
