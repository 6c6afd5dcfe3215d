// The bundle lookup and localize, seen from inside a bundle: a temporary
// bundle laid out like Varitap.vst holds a copy of the probe library (a small
// .so linked with the base layer) and a string table.
#include "persistence/PluginBundle.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "TestSupport.h"
#include "persistence/Localize.h"

namespace varitap {
namespace {

using test::TempDir;

// Makes <root>/<name>.vst with the probe at Contents/<arch>-linux/<name>.so.
struct ProbeBundle {
    ProbeBundle(const std::string& root, const std::string& name)
        : bundle(root + "/" + name + ".vst"), library(bundle + "/Contents/" VARITAP_ARCH_DIR "/" + name + ".so") {
        const std::string messages = bundle + "/Contents/Resources/locale/de/LC_MESSAGES";
        std::filesystem::create_directories(bundle + "/Contents/" VARITAP_ARCH_DIR);
        std::filesystem::create_directories(messages);
        std::filesystem::copy_file(VARITAP_PROBE_LIBRARY, library);
        std::filesystem::copy_file(VARITAP_PROBE_CATALOGUE, messages + "/varitap.mo");
    }
    std::string bundle;
    std::string library;
};

// The probe loaded from one path; unloaded again at the end of the scope.
struct LoadedProbe {
    explicit LoadedProbe(const std::string& path) : handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle) bundle = reinterpret_cast<const char* (*)()>(::dlsym(handle, "varitapProbeBundle"));
        if (handle) localize = reinterpret_cast<const char* (*)(const char*)>(::dlsym(handle, "varitapProbeLocalize"));
    }
    ~LoadedProbe() {
        if (handle) ::dlclose(handle);
    }
    LoadedProbe(const LoadedProbe&) = delete;
    LoadedProbe& operator=(const LoadedProbe&) = delete;
    bool ok() const { return bundle && localize; }

    void* handle;
    const char* (*bundle)() = nullptr;
    const char* (*localize)(const char*) = nullptr;
};

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

// localize() runs inside the probe library, placed in a bundle whose string
// table translates "Delay" and "#%d Input Channel" into German.
TEST(LocalizeTest, WordsComeFromTheBundlesTableUnderAGermanLocaleOnly) {
    TempDir root;
    ProbeBundle bundle(root.path(), "Words");
    LoadedProbe probe(bundle.library);
    ASSERT_TRUE(probe.ok()) << dlerror();

    // As a host that calls setlocale(LC_ALL, "") under LC_ALL=C; LANGUAGE is
    // then ignored by gettext, so even a German preference changes nothing.
    ::setenv("LC_ALL", "C", 1);
    ::setenv("LANGUAGE", "de", 1);
    ASSERT_NE(std::setlocale(LC_ALL, ""), nullptr);
    for (const char* word : {"Delay", "#%d Input Channel", "Volume"}) EXPECT_STREQ(probe.localize(word), word);

    // Results share one buffer of 1024 bytes: the next call overwrites the
    // last result, the input is never returned itself, and a long text is
    // cut to fit, never inside a UTF-8 character (1022 letters and a
    // two-byte letter keep only the 1022).
    const char* first = probe.localize("Delay");
    EXPECT_EQ(probe.localize("Feedback"), first);
    EXPECT_STREQ(first, "Feedback");
    const std::string word = "Resonance";
    EXPECT_NE(probe.localize(word.c_str()), word.c_str());
    EXPECT_EQ(std::strlen(probe.localize(std::string(3000, 'x').c_str())), 1023u);
    const std::string accented = std::string(1022, 'a') + "ü" + "tail";
    EXPECT_EQ(std::string(probe.localize(accented.c_str())), std::string(1022, 'a'));

    ::unsetenv("LANGUAGE");
    ::unsetenv("LC_ALL");
    if (!test::useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    EXPECT_STREQ(probe.localize("Delay"), "Verzögerung");
    EXPECT_STREQ(probe.localize("#%d Input Channel"), "#%d Eingangskanal");
    EXPECT_STREQ(probe.localize("Volume"), "Volume");  // not in the table
    // The empty word is never looked up (gettext would answer with the
    // table's header).
    EXPECT_STREQ(probe.localize(""), "");
    EXPECT_STREQ(probe.localize(nullptr), "");
    std::setlocale(LC_ALL, "C");
}

}  // namespace
}  // namespace varitap
