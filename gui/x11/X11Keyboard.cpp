#include "gui/x11/X11Keyboard.h"

#include <xkbcommon/xkbcommon-keysyms.h>
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

#include <cstdarg>

namespace varitap::gui::x11 {

namespace {

// xkbcommon prints warnings by default; Varitap stays silent.
void silentLog(xkb_context*, xkb_log_level, const char*, va_list) {}

VirtualKey virtualKeyFor(xkb_keysym_t sym) {
    switch (sym) {
        case XKB_KEY_Return:
        case XKB_KEY_KP_Enter: return VirtualKey::Return;
        case XKB_KEY_Escape: return VirtualKey::Escape;
        case XKB_KEY_BackSpace: return VirtualKey::Backspace;
        case XKB_KEY_Delete:
        case XKB_KEY_KP_Delete: return VirtualKey::Delete;
        case XKB_KEY_Tab:
        case XKB_KEY_ISO_Left_Tab: return VirtualKey::Tab;
        case XKB_KEY_Left:
        case XKB_KEY_KP_Left: return VirtualKey::Left;
        case XKB_KEY_Right:
        case XKB_KEY_KP_Right: return VirtualKey::Right;
        case XKB_KEY_Up:
        case XKB_KEY_KP_Up: return VirtualKey::Up;
        case XKB_KEY_Down:
        case XKB_KEY_KP_Down: return VirtualKey::Down;
        case XKB_KEY_Home:
        case XKB_KEY_KP_Home: return VirtualKey::Home;
        case XKB_KEY_End:
        case XKB_KEY_KP_End: return VirtualKey::End;
        default: return VirtualKey::None;
    }
}

}  // namespace

X11Keyboard::~X11Keyboard() { reset(); }

void X11Keyboard::reset() {
    if (state_) xkb_state_unref(state_);
    if (keymap_) xkb_keymap_unref(keymap_);
    if (context_) xkb_context_unref(context_);
    state_ = nullptr;
    keymap_ = nullptr;
    context_ = nullptr;
}

bool X11Keyboard::setup(xcb_connection_t* connection) {
    reset();
    if (!xkb_x11_setup_xkb_extension(connection, XKB_X11_MIN_MAJOR_XKB_VERSION,
                                     XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr,
                                     nullptr, nullptr)) {
        return false;
    }
    context_ = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    if (!context_) return false;
    xkb_context_set_log_fn(context_, silentLog);
    const int32_t device = xkb_x11_get_core_keyboard_device_id(connection);
    if (device < 0) {
        reset();
        return false;
    }
    keymap_ = xkb_x11_keymap_new_from_device(context_, connection, device,
                                             XKB_KEYMAP_COMPILE_NO_FLAGS);
    if (!keymap_) {
        reset();
        return false;
    }
    state_ = xkb_state_new(keymap_);
    if (!state_) {
        reset();
        return false;
    }
    return true;
}

uint32_t X11Keyboard::modifiersFromState(uint16_t state) {
    uint32_t m = 0;
    if (state & XCB_MOD_MASK_SHIFT) m |= kShift;
    if (state & XCB_MOD_MASK_CONTROL) m |= kControl;
    if (state & XCB_MOD_MASK_1) m |= kAlt;
    return m;
}

KeyEvent X11Keyboard::translate(xcb_keycode_t keycode, uint16_t state) {
    KeyEvent key;
    key.modifiers = modifiersFromState(state);
    if (!state_) return key;
    // The core modifier bits are the keymap's real modifiers 0..7; the group
    // sits in bits 13-14.
    xkb_state_update_mask(state_, state & 0xFF, 0, 0, 0, 0, (state >> 13) & 3);
    const xkb_keysym_t sym = xkb_state_key_get_one_sym(state_, keycode);
    key.keysym = sym;
    key.virtualKey = virtualKeyFor(sym);
    if (key.virtualKey == VirtualKey::None) {
        xkb_state_key_get_utf8(state_, keycode, key.text, sizeof key.text);
        // With Control held xkbcommon gives control characters; keep the
        // plain letter so that shortcuts can be recognised.
        if ((key.modifiers & kControl) && static_cast<unsigned char>(key.text[0]) < 0x20) {
            key.text[0] = '\0';
        }
    }
    return key;
}

}  // namespace varitap::gui::x11
