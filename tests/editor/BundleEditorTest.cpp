// The editor of the built bundle, loaded the way a host loads it (dlopen,
// VSTPluginMain) and opened in a host window: what it shows is compared
// with a stored reference picture.
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "EditorTestSupport.h"

namespace varitap::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kReference = VARITAP_TEST_DATA_DIR "/editor/editor-default.png";

std::string bundleLibrary() {
    std::error_code ec;
    for (const auto& dir : fs::directory_iterator(VARITAP_BUNDLE_DIR "/Contents", ec)) {
        const fs::path so = dir.path() / "Varitap.so";
        if (fs::exists(so)) return so.string();
    }
    return {};
}

TEST(BundleEditorTest, DefaultEditorLooksLikeTheReference) {
    if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
    ConfigHome home;  // no stored background: "default.png"
    void* module = dlopen(bundleLibrary().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    const auto entry = reinterpret_cast<EditorHost::Entry>(dlsym(module, "VSTPluginMain"));
    ASSERT_NE(entry, nullptr);
    Image shown;
    {
        EditorHost host(std::string(), 2400, entry);
        ASSERT_NE(host.aeffect(), nullptr);
        EXPECT_TRUE(host.aeffect()->flags & vst::effFlagsHasEditor);
        ASSERT_TRUE(host.openEditor());
        host.settle(5);
        shown = host.display().grab(host.hostWindow(), gui::Rect(0, 0, 865, 400));
    }
    dlclose(module);

    saveScreenshot(shown, "editor-default.png");
    if (getenv("VARITAP_UPDATE_EDITOR_REFERENCE")) {
        ASSERT_TRUE(shown.writePng(kReference));
    }
    const Image reference = Image::readPng(kReference);
    ASSERT_EQ(reference.width, 865);
    ASSERT_EQ(reference.height, 400);
    // Same fonts, same pixels: a widget moved by one pixel changes hundreds
    // of them; a few edge pixels of font rasterisation may differ.
    EXPECT_LT(differingFraction(shown, reference, 40), 0.0001);
    // Not a blank picture: the strips' art is there.
    EXPECT_GT(differingFraction(shown, Image(865, 400), 40), 0.5);
}

}  // namespace
}  // namespace varitap::test
