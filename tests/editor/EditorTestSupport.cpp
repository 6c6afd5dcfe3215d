#include "EditorTestSupport.h"

#include <cstdio>

#include "gui/Bitmap.h"
#include "host/vst2/Vst2Effect.h"

namespace varitap::test {

namespace {

EditorHost* gCurrentHost = nullptr;  // the one alive now, if any

}  // namespace

void HostLog::add(const std::string& event, int32_t index, float value) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.push_back(event);
    if (index >= 0) lastValue_ = {index, value};
}

void HostLog::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.clear();
    lastValue_ = {-1, 0.0f};
}

void HostLog::value(uint32_t index, double value, const std::string& suffix) {
    char text[64];
    std::snprintf(text, sizeof text, "value %u %g", index, value);
    add(text + suffix, static_cast<int32_t>(index), static_cast<float>(value));
}

void expectOneGesture(const std::vector<std::string>& events, int32_t index) {
    const std::string n = std::to_string(index);
    ASSERT_GE(events.size(), 3u);
    EXPECT_EQ(events.front(), "begin " + n);
    EXPECT_EQ(events.back(), "end " + n);
    for (size_t i = 1; i + 1 < events.size(); ++i) EXPECT_EQ(events[i].rfind("value " + n + " ", 0), 0u) << events[i];
}

// The callback of every instance made here: a host of the EditorHost's VST
// version that records automation, edit gestures and window size requests
// in the EditorHost's log, and gives the editor's window the size it asks
// for (the host window of the EditorHost alive now, unless it refuses).
static vst::VstIntPtr hostCallback(vst::AEffect* effect, int32_t opcode, int32_t index, vst::VstIntPtr value,
                                   void*, float opt) {
    EditorHost* host = gCurrentHost;
    switch (opcode) {
        case vst::audioMasterVersion:
            return host ? host->hostVersion() : 2400;
        case vst::audioMasterAutomate:
            if (host) host->log.value(static_cast<uint32_t>(index), opt);
            if (host && effect && index == host->writesBackIndex) {
                effect->setParameter(effect, index, host->writesBackValue);
            }
            return 0;
        case vst::audioMasterBeginEdit:
        case vst::audioMasterEndEdit:
            if (host) host->log.edit(opcode == vst::audioMasterBeginEdit ? "begin" : "end", static_cast<uint32_t>(index));
            return 1;
        case vst::audioMasterSizeWindow:
            if (host) host->log.add("size " + std::to_string(index) + "x" + std::to_string(value));
            return host && host->resizeHostWindow(index, static_cast<int>(value)) ? 1 : 0;
        default:
            return 0;
    }
}

HostWindow::HostWindow(const std::string& resources) {
    gui::Bitmap::setResourceDirectory(resources.empty() ? std::string(VARITAP_BUNDLE_DIR "/Contents/Resources")
                                                        : resources);
    setEditorFactory(&createDelayEditor);
    if (display_.ok()) window_ = display_.createWindow(865, 400);
}

HostWindow::~HostWindow() {
    if (window_) display_.destroyWindow(window_);
    setEditorFactory(nullptr);
    gui::Bitmap::setResourceDirectory(std::string());
}

void HostWindow::drag(xcb_window_t w, gui::Point from, gui::Point to, const std::function<void()>& settle) {
    display_.button(w, from.x, from.y, 1, true);
    settle();
    const int steps = 4;
    for (int s = 1; s <= steps; ++s) {
        display_.motion(w, from.x + (to.x - from.x) * s / steps, from.y + (to.y - from.y) * s / steps,
                        XCB_BUTTON_MASK_1);
        settle();
    }
    display_.button(w, to.x, to.y, 1, false, XCB_BUTTON_MASK_1);
    settle();
}

EditorHost::EditorHost(const std::string& resources, int32_t hostVersion, Entry entry)
    : HostWindow(resources), hostVersion_(hostVersion) {
    previousHost_ = gCurrentHost;
    gCurrentHost = this;
    aeffect_ = (entry ? entry : &createDelayEffect)(&hostCallback);
    // An instance of another module has no editor this program can reach.
    if (aeffect_ && !entry) effect_ = &Vst2Effect::fromRecord(aeffect_)->core();
}

EditorHost::~EditorHost() {
    gCurrentHost = previousHost_;
    closeInstance();
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
    const bool ok = dispatch(vst::effEditOpen, 0, 0, parent()) == 1;
    if (ok) settle();
    return ok;
}

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

void EditorHost::click(gui::Point at, int button) {
    display_.click(editorWindow(), at.x, at.y, button);
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

bool answeringDialog(HostDisplay& display, const char* text, uint32_t keysym, const std::function<bool()>& run) {
    std::thread user([&display, text, keysym] {
        const xcb_window_t dialog = waitForDialog(display);
        if (!dialog) {
            ADD_FAILURE() << "no dialog to answer";
            return;
        }
        if (text) display.typeText(dialog, text);
        display.key(dialog, keysym);
    });
    const bool answer = run();
    user.join();
    return answer;
}

void saveScreenshot(const Image& image, const char* name) {
    const char* dir = getenv("VARITAP_SCREENSHOT_DIR");
    if (!dir || !*dir) return;
    image.writePng(std::string(dir) + "/" + name);
}

}  // namespace varitap::test
