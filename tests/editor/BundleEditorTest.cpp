// The editor of the built bundle, loaded the way a host loads it (dlopen,
// VSTPluginMain) and opened in a host window: what it shows is compared
// with a stored reference picture.
#include <dlfcn.h>
#include <gtest/gtest.h>

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
    const std::string path = bundleLibrary();
    ASSERT_FALSE(path.empty());
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();
    auto entry = reinterpret_cast<vst::AEffect* (*)(vst::audioMasterCallback)>(
        dlsym(module, "VSTPluginMain"));
    ASSERT_NE(entry, nullptr);

    vst::AEffect* effect = entry(&hostCallback);
    ASSERT_NE(effect, nullptr);
    EXPECT_TRUE(effect->flags & vst::effFlagsHasEditor);
    HostDisplay display;
    const xcb_window_t window = display.createWindow(865, 400);
    ASSERT_EQ(effect->dispatcher(effect, vst::effEditOpen, 0, 0,
                                 reinterpret_cast<void*>(static_cast<uintptr_t>(window)), 0.0f),
              1);
    for (int i = 0; i < 5; ++i) {
        effect->dispatcher(effect, vst::effEditIdle, 0, 0, nullptr, 0.0f);
        display.sync();
        gui::test::waitFor([] { return false; }, 20);
    }
    const Image shown = display.grab(window, gui::Rect(0, 0, 865, 400));
    effect->dispatcher(effect, vst::effEditClose, 0, 0, nullptr, 0.0f);
    effect->dispatcher(effect, vst::effClose, 0, 0, nullptr, 0.0f);
    display.destroyWindow(window);
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
