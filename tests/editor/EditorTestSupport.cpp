#include "EditorTestSupport.h"

#include <stdlib.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "editor/DelayEditor.h"
#include "gui/Bitmap.h"
#include "host/vst2/Vst2Effect.h"

namespace varitap::test {

namespace {

EditorHost* gCurrentHost = nullptr;  // the one alive now, if any

vst::VstTimeInfo gTime = [] {
    vst::VstTimeInfo t{};
    t.sampleRate = 44100.0;
    t.tempo = 120.0;
    t.flags = vst::kVstTempoValid | vst::kVstTransportPlaying;
    return t;
}();

}  // namespace

void HostLog::add(const std::string& event, int32_t index, float value) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(event);
    if (index >= 0) automated_.emplace_back(index, value);
}

std::vector<std::string> HostLog::events() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
}

std::vector<std::pair<int32_t, float>> HostLog::automated() {
    std::lock_guard<std::mutex> lock(mutex_);
    return automated_;
}

void HostLog::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
    automated_.clear();
}

HostLog& hostLog() {
    static HostLog log;
    return log;
}

vst::VstIntPtr hostCallback(vst::AEffect* effect, int32_t opcode, int32_t index,
                            vst::VstIntPtr value, void* ptr, float opt) {
    (void)ptr;
    HostLog& log = hostLog();
    switch (opcode) {
        case vst::audioMasterVersion:
            return gCurrentHost ? gCurrentHost->hostVersion() : 2400;
        case vst::audioMasterAutomate:
            log.add("auto " + std::to_string(index), index, opt);
            if (gCurrentHost && effect && index == gCurrentHost->writesBackIndex) {
                effect->setParameter(effect, index, gCurrentHost->writesBackValue);
            }
            return 0;
        case vst::audioMasterBeginEdit:
            log.add("begin " + std::to_string(index));
            return 1;
        case vst::audioMasterEndEdit:
            log.add("end " + std::to_string(index));
            return 1;
        case vst::audioMasterGetTime:
            return reinterpret_cast<vst::VstIntPtr>(&gTime);
        case vst::audioMasterSizeWindow:
            log.add("size " + std::to_string(index) + "x" + std::to_string(value));
            return gCurrentHost && gCurrentHost->resizeHostWindow(index, static_cast<int>(value))
                       ? 1
                       : 0;
        default:
            return 0;
    }
}

ConfigHome::ConfigHome() {
    if (const char* old = getenv("XDG_CONFIG_HOME")) {
        old_ = old;
        hadOld_ = true;
    }
    setenv("XDG_CONFIG_HOME", dir_.path().c_str(), 1);
}

ConfigHome::~ConfigHome() {
    if (hadOld_) {
        setenv("XDG_CONFIG_HOME", old_.c_str(), 1);
    } else {
        unsetenv("XDG_CONFIG_HOME");
    }
}

EditorHost::EditorHost(const std::string& resources, int32_t hostVersion)
    : hostVersion_(hostVersion) {
    gui::Bitmap::setResourceDirectory(resources.empty()
                                          ? std::string(VARITAP_BUNDLE_DIR "/Contents/Resources")
                                          : resources);
    setEditorFactory(&createDelayEditor);
    previousHost_ = gCurrentHost;
    gCurrentHost = this;
    aeffect_ = createDelayEffect(&hostCallback);
    if (aeffect_) effect_ = &Vst2Effect::fromRecord(aeffect_)->core();
    if (display_.ok()) window_ = display_.createWindow(865, 400);
}

EditorHost::~EditorHost() {
    gCurrentHost = previousHost_;
    closeInstance();
    if (window_) display_.destroyWindow(window_);
    setEditorFactory(nullptr);
    gui::Bitmap::setResourceDirectory(std::string());
}

DelayEditor* EditorHost::editor() const {
    return effect_ ? static_cast<DelayEditor*>(effect_->getEditor()) : nullptr;
}

xcb_window_t EditorHost::editorWindow() const {
    DelayEditor* e = editor();
    return e && e->frame() ? e->frame()->windowId() : 0;
}

vst::VstIntPtr EditorHost::dispatch(int32_t opcode, int32_t index, vst::VstIntPtr value,
                                    void* ptr, float opt) {
    return aeffect_ ? aeffect_->dispatcher(aeffect_, opcode, index, value, ptr, opt) : 0;
}

gui::Rect EditorHost::editorRect() {
    vst::ERect* rect = nullptr;
    if (dispatch(vst::effEditGetRect, 0, 0, &rect) != 1 || !rect) return gui::Rect();
    return gui::Rect(rect->left, rect->top, rect->right, rect->bottom);
}

bool EditorHost::resizeHostWindow(int width, int height) {
    if (!grantsResize_ || !window_ || width <= 0 || height <= 0) return false;
    display_.resizeWindow(window_, width, height);
    return true;
}

bool EditorHost::openEditor() {
    const gui::Rect r = editorRect();
    if (window_ && !r.isEmpty()) display_.resizeWindow(window_, r.width(), r.height());
    const bool ok = dispatch(vst::effEditOpen, 0, 0,
                             reinterpret_cast<void*>(static_cast<uintptr_t>(window_))) == 1;
    if (ok) settle();
    return ok;
}

void EditorHost::closeEditor() { dispatch(vst::effEditClose); }

void EditorHost::settle(int rounds) {
    for (int i = 0; i < rounds; ++i) {
        dispatch(vst::effEditIdle);
        display_.sync();
        gui::test::waitFor([] { return false; }, 10);
    }
    dispatch(vst::effEditIdle);
    display_.sync();
}

Image EditorHost::grabEditor() {
    settle();
    const gui::Rect size = display_.geometry(editorWindow());
    return display_.grab(editorWindow(), gui::Rect(0, 0, size.width(), size.height()));
}

void EditorHost::click(int x, int y, int button) {
    display_.click(editorWindow(), x, y, button);
    settle(1);
}

void EditorHost::drag(int x0, int y0, int x1, int y1) {
    const xcb_window_t w = editorWindow();
    display_.button(w, x0, y0, 1, true);
    settle(1);
    const int steps = 4;
    for (int s = 1; s <= steps; ++s) {
        display_.motion(w, x0 + (x1 - x0) * s / steps, y0 + (y1 - y0) * s / steps,
                        XCB_BUTTON_MASK_1);
        settle(1);
    }
    display_.button(w, x1, y1, 1, false, XCB_BUTTON_MASK_1);
    settle(1);
}

void EditorHost::closeInstance() {
    if (!aeffect_) return;
    dispatch(vst::effEditClose);
    dispatch(vst::effClose);
    aeffect_ = nullptr;
    effect_ = nullptr;
}

xcb_window_t waitForDialog(HostDisplay& display, int ms) {
    xcb_window_t found = 0;
    const std::vector<uint32_t> dialog{display.atom("_NET_WM_WINDOW_TYPE_DIALOG")};
    gui::test::waitFor(
        [&] {
            for (xcb_window_t w : display.topWindows(false)) {
                if (display.property32(w, "_NET_WM_WINDOW_TYPE") == dialog) found = w;
            }
            return found != 0;
        },
        ms);
    return found;
}

void pressKey(HostDisplay& display, xcb_window_t w, uint32_t keysym, int times) {
    for (int i = 0; i < times; ++i) display.key(w, keysym);
}

std::thread answerDialog(HostDisplay& display, const char* text, uint32_t keysym) {
    return std::thread([&display, text, keysym] {
        const xcb_window_t dialog = waitForDialog(display);
        if (!dialog) return;
        if (text) display.typeText(dialog, text);
        pressKey(display, dialog, keysym);
    });
}

void openAndCloseAHundredTimes(HostDisplay& display, xcb_window_t hostWindow, const std::function<bool()>& open,
                               const std::function<void()>& close, const std::function<void()>& block) {
    ASSERT_TRUE(open());
    close();
    const int descriptors = gui::test::openDescriptors();
    std::atomic<bool> stop{false};
    std::atomic<long> blocks{0};
    std::thread audio([&] {
        for (; !stop; ++blocks) block();
    });
    for (int round = 0; round < 100; ++round) {
        const bool opened = open();
        close();
        EXPECT_TRUE(opened) << "round " << round;
    }
    stop = true;
    audio.join();
    EXPECT_GT(blocks.load(), 100);
    EXPECT_TRUE(gui::test::waitFor([&] { return display.children(hostWindow).empty(); }));
    EXPECT_TRUE(display.popupWindows().empty());
    EXPECT_EQ(gui::test::openDescriptors(), descriptors);
}

void saveScreenshot(const Image& image, const char* name) {
    const char* dir = getenv("VARITAP_SCREENSHOT_DIR");
    if (!dir || !*dir) return;
    image.writePng(std::string(dir) + "/" + name);
}

}  // namespace varitap::test
