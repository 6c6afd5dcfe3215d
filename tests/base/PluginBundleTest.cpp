#include "persistence/PluginBundle.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <vector>

#include "ProbeBundle.h"

namespace varitap {
namespace {

using test::LoadedProbe;
using test::ProbeBundle;
using test::TempDir;

// The bundle is where the library really lives, however the host reached
// it: directly, through a symlinked .so in a plug-in folder, through a
// symlinked bundle, or by a relative path. Each case gets its own copy of
// the probe: the loader recognises a file it has already loaded and would
// answer with the path of the first load.
TEST(PluginBundleTest, FindsTheRealBundleHoweverTheLibraryWasReached) {
    TempDir root;
    std::filesystem::create_directories(root / "plugins");
    const std::string arch = "/Contents/" VARITAP_ARCH_DIR "/";
    struct Case {
        const char* name;
        const char* link;  // made to point at the bundle (".vst") or the library (".so")
        std::string load;  // the path handed to the loader
    };
    const Case cases[] = {
        {"Plain", nullptr, root / "Plain.vst" + arch + "Plain.so"},
        {"Linked", "plugins/Linked.so", root / "plugins/Linked.so"},
        {"Target", "Alias.vst", root / "Alias.vst" + arch + "Target.so"},
        {"Relative", nullptr, "./Relative.vst" + arch + "Relative.so"},
    };
    const std::filesystem::path previous = std::filesystem::current_path();
    for (const Case& c : cases) {
        ProbeBundle bundle(root.path(), c.name);
        if (c.link) {
            const std::string target = std::string(c.link).find(".so") != std::string::npos ? bundle.library
                                                                                             : bundle.bundle;
            ASSERT_EQ(::symlink(target.c_str(), (root / c.link).c_str()), 0) << c.name;
        }
        std::filesystem::current_path(root.path());
        LoadedProbe probe(c.load);
        const std::string found = probe.ok() ? probe.bundle() : "";
        std::filesystem::current_path(previous);
        EXPECT_EQ(found, std::filesystem::canonical(bundle.bundle).string()) << c.name;
    }
}

// Resources by name and by type in a folder of a bundle. Outside a bundle
// (this program) the bundle is three folders above the program.
TEST(PluginBundleTest, ResourcesByNameAndByTypeInAFolder) {
    const std::filesystem::path program = std::filesystem::canonical("/proc/self/exe");
    EXPECT_EQ(copyPluginBundle(), program.parent_path().parent_path().parent_path().string());
    TempDir root;
    const std::string bundle = root / "R.vst";
    const std::string resources = bundle + "/Contents/Resources";
    std::filesystem::create_directories(resources + "/Backgrounds/folder.png");
    std::filesystem::create_directories(resources + "/directory.xml");
    ASSERT_TRUE(test::writeFile(resources + "/varitap.factory.presets.xml", "<x/>"));
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
