// What the effect layer asks of a plug-in editor. The editor layer derives
// its editor base from this; the effect layer only forwards the host's editor
// opcodes and tells the editor of parameter changes.
#pragma once

#include <cstdint>

#include "host/VstInterface.h"

namespace varitap {

class AudioEffect;

class AEffEditor {
public:
    // ui thread. Attaches itself to the effect, which then reports
    // effFlagsHasEditor to the host.
    explicit AEffEditor(AudioEffect* effect);
    virtual ~AEffEditor() = default;
    AEffEditor(const AEffEditor&) = delete;
    AEffEditor& operator=(const AEffEditor&) = delete;

    // ui thread (the host's editor calls). parentWindow is the host's X11
    // window id passed in the pointer argument.
    virtual bool open(void* parentWindow) {
        systemWindow = parentWindow;
        return true;
    }
    virtual void close() { systemWindow = nullptr; }
    virtual void idle() {}
    virtual bool isOpen() const { return systemWindow != nullptr; }
    // ui thread (effEditGetRect, also before the editor opens). The editor's
    // own rectangle in the host's pixels, a record that stays valid while the
    // editor lives; false leaves the effect's fixed rectangle.
    virtual bool getRect(vst::ERect** rect) {
        (void)rect;
        return false;
    }

    // any thread (host automation, the editor itself, the modulators on the
    // audio thread). Called after the effect has stored a parameter value.
    virtual void setParameter(int32_t index, float value) {
        (void)index;
        (void)value;
    }
    // ui thread. The effect's channel configuration changed.
    virtual void rebuildRoutingMenus() {}

    AudioEffect* getEffect() const { return effect; }

protected:
    AudioEffect* effect;
    void* systemWindow = nullptr;
};

}  // namespace varitap
