// Test support for the editor: a recording stand-in host for the plug-in
// instance, the editor opened in a host window on the private Xvfb server
// of tests/gui/XServer.cpp, and helpers that play the user on popup menus
// and dialogs.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <xcb/xcb.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "../gui/XServer.h"
#include "editor/DelayEditor.h"
#include "editor/EditorDialogs.h"
#include "editor/EditorViews.h"
#include "engine/ParameterLayout.h"
#include "gui/Buttons.h"
#include "gui/Knob.h"
#include "gui/OptionMenu.h"
#include "gui/Slider.h"
#include "host/DelayEffect.h"
#include "host/vst2/VstInterface.h"

namespace varitap::test {

using gui::test::HostDisplay;
using gui::test::Image;
using gui::test::differingFraction;
using gui::test::waitForMenus;

// What the plug-in told the host, in order, in one form for every format:
// "begin 23", "value 23 0.5", "end 23", and the host-specific calls
// ("size 1730x800", "resize 865 400", "timer 1", "fd 7").
class HostLog {
public:
    void add(const std::string& event, int32_t index = -1, float value = 0.0f);
    void edit(const char* kind, uint32_t index) { add(kind + (" " + std::to_string(index))); }
    void value(uint32_t index, double value, const std::string& suffix = std::string());
    std::vector<std::string> events() {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_;
    }
    // The parameter and value of the last "value" entry ({-1, 0} for none).
    std::pair<int32_t, float> lastValue() {
        std::lock_guard<std::mutex> lock(mutex_);
        return lastValue_;
    }
    void clear();

private:
    std::mutex mutex_;
    std::vector<std::string> events_;
    std::pair<int32_t, float> lastValue_{-1, 0.0f};
};

// The edits of one gesture on a parameter: begin, values only, end.
void expectOneGesture(const std::vector<std::string>& events, int32_t index);

// The host side every format shares: the editor factory and the bitmaps
// (the built bundle's Resources unless given) installed, a host window of
// the editor's size, the log, and the user's mouse.
class HostWindow {
public:
    explicit HostWindow(const std::string& resources = std::string());
    ~HostWindow();

    HostDisplay& display() { return display_; }
    xcb_window_t hostWindow() const { return window_; }
    void* parent() const { return reinterpret_cast<void*>(static_cast<uintptr_t>(window_)); }
    // A press, four moves and a release from one point of a window (its
    // pixels) to another, `settle` run after each.
    void drag(xcb_window_t w, gui::Point from, gui::Point to, const std::function<void()>& settle);

    HostLog log;

protected:
    HostDisplay display_;
    xcb_window_t window_ = 0;
};

// A temporary XDG_CONFIG_HOME for the options and user presets of one test.
class ConfigHome {
public:
    ConfigHome() { setenv("XDG_CONFIG_HOME", dir_.path().c_str(), 1); }
    ~ConfigHome() { unsetenv("XDG_CONFIG_HOME"); }
    const std::string& path() const { return dir_.path(); }
    std::string readOptions() const { return readFile(path() + "/brelmo.varitap.conf"); }

private:
    TempDir dir_;
};
// One VST 2 instance made through the module's entry function, and a host
// window to open its editor in.
class EditorHost : public HostWindow {
public:
    // hostVersion: what the host answers to audioMasterVersion (2400 is VST
    // 2.4); entry: the module's entry function (the linked-in one unless given).
    using Entry = vst::AEffect* (*)(vst::audioMasterCallback);
    explicit EditorHost(const std::string& resources = std::string(), int32_t hostVersion = 2400,
                        Entry entry = nullptr);
    ~EditorHost();

    vst::AEffect* aeffect() const { return aeffect_; }
    DelayEffect* effect() const { return effect_; }
    DelayEditor* editor() const { return effect_ ? static_cast<DelayEditor*>(effect_->getEditor()) : nullptr; }
    xcb_window_t editorWindow() const {
        return editor() && editor()->frame() ? editor()->frame()->windowId() : 0;
    }

    vst::VstIntPtr dispatch(int32_t opcode, int32_t index = 0, vst::VstIntPtr value = 0, void* ptr = nullptr,
                            float opt = 0.0f) {
        return aeffect_ ? aeffect_->dispatcher(aeffect_, opcode, index, value, ptr, opt) : 0;
    }
    // As hosts do: sizes the host window to effEditGetRect, then opens.
    bool openEditor();
    // The editor's rectangle from effEditGetRect (left, top, right, bottom).
    gui::Rect editorRect();
    // Whether the host grants the editor's size requests (it does unless told).
    void setGrantsResize(bool grants) { grantsResize_ = grants; }
    int32_t hostVersion() const { return hostVersion_; }
    bool resizeHostWindow(int width, int height);
    void closeEditor() { dispatch(vst::effEditClose); }
    // Idles the editor a few times so that what changed is drawn.
    void settle(int rounds = 3);
    // The editor's whole window as shown.
    Image grabEditor();
    // Synthetic mouse on the editor's window (its pixels: editor coordinates
    // times the editor's scale).
    void click(gui::Point at, int button = 1);
    void drag(gui::Point from, gui::Point to) {
        HostWindow::drag(editorWindow(), from, to, [this] { settle(1); });
    }
    // Closes the instance (effClose), which deletes the editor.
    void closeInstance();

    // A host that, when told of automation of this parameter, writes its own
    // value back into the plug-in (as a host replaying its automation does).
    int32_t writesBackIndex = -1;
    float writesBackValue = 0.0f;

private:
    int32_t hostVersion_;
    vst::AEffect* aeffect_ = nullptr;
    DelayEffect* effect_ = nullptr;
    bool grantsResize_ = true;
    EditorHost* previousHost_ = nullptr;  // the one the callback served before
};

// The fixture of the tests on one instance and its editor, its options and
// presets in a private configuration folder.
class EditorTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!gui::test::haveDisplay() || !host.display().ok()) GTEST_SKIP() << "no X server";
        ASSERT_NE(host.editor(), nullptr);
    }
    DelayEditor& editor() { return *host.editor(); }
    void hostSets(int32_t index, float value) { host.aeffect()->setParameter(host.aeffect(), index, value); }
    float parameter(int32_t index) { return host.aeffect()->getParameter(host.aeffect(), index); }

    ConfigHome home;
    EditorHost host;
};

// The middle of a view, in its frame's coordinates.
inline gui::Point centerOf(const gui::View* view) {
    const gui::Rect r = view->frameRect();
    return gui::Point{(r.left + r.right) / 2, (r.top + r.bottom) / 2};
}
// The first mapped top-level dialog window (_NET_WM_WINDOW_TYPE_DIALOG), or 0.
// The wait is long because a modal dialog nobody answers never returns: on a
// loaded machine a short wait would turn a slow server into a hung test.
xcb_window_t waitForDialog(HostDisplay& display, int ms = 30000);
// Runs `run` while the user, on a thread, types text (unless null) into the
// next dialog and presses a key (a failure when no dialog comes); run's answer.
bool answeringDialog(HostDisplay& display, const char* text, uint32_t keysym, const std::function<bool()>& run);

// When VARITAP_SCREENSHOT_DIR is set, saves the image there under name.
void saveScreenshot(const Image& image, const char* name);

}  // namespace varitap::test
