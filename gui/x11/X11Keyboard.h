// Keyboard translation for one X connection through xkbcommon: X key
// events become toolkit key events (virtual keys, UTF-8 text, modifiers).
#pragma once

#include <xcb/xcb.h>

#include "gui/GuiTypes.h"

struct xkb_context;
struct xkb_keymap;
struct xkb_state;

namespace varitap::gui::x11 {

class X11Keyboard {
public:
    X11Keyboard() = default;
    ~X11Keyboard();
    X11Keyboard(const X11Keyboard&) = delete;
    X11Keyboard& operator=(const X11Keyboard&) = delete;

    // Loads the core keyboard's keymap; false leaves keys untranslated.
    bool setup(xcb_connection_t* connection);
    void reset();
    bool isReady() const { return state_ != nullptr; }

    // The event's keycode read with the modifier and group state it carries
    // (so synthetic events translate like real ones).
    KeyEvent translate(xcb_keycode_t keycode, uint16_t state);

    // The toolkit's modifier bits of a core state mask.
    static uint32_t modifiersFromState(uint16_t state);

private:
    xkb_context* context_ = nullptr;
    xkb_keymap* keymap_ = nullptr;
    xkb_state* state_ = nullptr;
};

}  // namespace varitap::gui::x11
