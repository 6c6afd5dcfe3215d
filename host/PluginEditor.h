// What the plug-in instance asks of its editor, whatever the plug-in format.
// The editor layer derives its editor from this; each format's glue only
// forwards its host's editor calls (open in a host window, idle, close) and
// the instance tells the editor of parameter changes.
#pragma once

#include <cstdint>

namespace varitap {

class PluginEditor {
public:
    // The editor's logical size in pixels (its size at a scale of 1).
    static constexpr int kWidth = 865;
    static constexpr int kHeight = 400;

    PluginEditor() = default;
    virtual ~PluginEditor() = default;
    PluginEditor(const PluginEditor&) = delete;
    PluginEditor& operator=(const PluginEditor&) = delete;

    // ui thread (the host's editor calls). parentWindow is the host's X11
    // window id passed as a pointer.
    virtual bool open(void* parentWindow) {
        systemWindow = parentWindow;
        return true;
    }
    virtual void close() { systemWindow = nullptr; }
    virtual void idle() {}
    virtual bool isOpen() const { return systemWindow != nullptr; }
    // ui thread. The editor's own window inside the host's (an X11 window id
    // as a pointer) while open, else null.
    virtual void* nativeWindow() const { return nullptr; }
    // ui thread. While open, the descriptor of the editor's window system
    // connection, which becomes readable when events wait for idle(); else
    // -1. Hosts with an event loop watch it and idle the editor then.
    virtual int connectionFd() const { return -1; }
    // ui thread (also before the editor opens). The window's size in host
    // pixels: the logical size times the editor's scale.
    virtual void getSize(int32_t* width, int32_t* height) {
        *width = kWidth;
        *height = kHeight;
    }
    // ui thread. The host's scale where the plug-in format has one (LV2
    // ui:scaleFactor, CLAP set_scale); 0 hands the choice back to the user's
    // option and the display.
    virtual void setScale(double scale) { (void)scale; }

    // any thread (host automation, the editor itself, the modulators on the
    // audio thread). Called after the instance has stored a parameter value.
    virtual void setParameter(int32_t index, float value) {
        (void)index;
        (void)value;
    }
    // ui thread. The instance's channel configuration changed.
    virtual void rebuildRoutingMenus() {}

protected:
    void* systemWindow = nullptr;
};

}  // namespace varitap
