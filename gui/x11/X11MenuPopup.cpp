// Option menus popped up as override-redirect windows on the frame's own
// connection, with pointer and keyboard grabs, until a choice, Escape or a
// click outside. Sub-menus open beside their entry. Menus take the frame's
// scale: their layout is logical, their windows and root positions device
// pixels.
#include <cairo-xcb.h>
#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "gui/DrawContext.h"
#include "gui/Font.h"
#include "gui/Frame.h"
#include "gui/Interaction.h"
#include "gui/OptionMenu.h"
#include "gui/x11/X11Frame.h"

namespace varitap::gui::x11 {

namespace {

constexpr int kCheckColumn = 18;   // room for the check mark on the left
constexpr int kArrowColumn = 16;   // room for the sub-menu arrow on the right
constexpr int kMinWidth = 60;
const Color kMenuBack{238, 238, 238, 255};
const Color kMenuBorder{90, 90, 90, 255};
const Color kHighlight{50, 100, 200, 255};
const Color kDisabledText{150, 150, 150, 255};

struct MenuWindow {
    OptionMenu* menu = nullptr;  // kept alive by the top menu
    std::vector<uint32_t> flags;
    std::vector<Rect> items;  // menu coordinates, in columns when the menu is long
    Point size;               // logical
    MenuNavigator nav{{}};
    xcb_window_t window = 0;
    cairo_surface_t* surface = nullptr;
    Rect rect;  // root coordinates, device pixels
};

class MenuPopup {
public:
    MenuPopup(X11Frame& platform, OptionMenu& top, const PixelScale& scale)
        : p_(platform), top_(top), c_(platform.connection()), scale_(scale) {}
    ~MenuPopup() {
        while (!stack_.empty()) closeLast();
        xcb_ungrab_pointer(c_, XCB_CURRENT_TIME);
        xcb_ungrab_keyboard(c_, XCB_CURRENT_TIME);
        xcb_flush(c_);
    }

    bool run(Point rootPoint);

private:
    bool open(OptionMenu& menu, Point at, int avoidLeft);
    void closeLast();
    void draw(MenuWindow& w);
    int menuAt(int rootX, int rootY) const;
    void openSubmenuOf(size_t level);
    void choose(size_t level, int index);
    void handle(xcb_generic_event_t* e);
    void highlight(size_t level, int index);
    // The item of menu window w under a root position, -1 when none.
    int itemAt(const MenuWindow& w, int rootX, int rootY) const;

    X11Frame& p_;
    OptionMenu& top_;
    xcb_connection_t* c_;
    PixelScale scale_;
    std::vector<MenuWindow> stack_;
    bool done_ = false;
    bool chosen_ = false;
    bool pressInside_ = false;
    // A release chooses only after the pointer moved over the menu or was
    // pressed in it: the release of the click that opened the menu must not
    // pick whatever entry happens to lie under the pointer.
    bool armed_ = false;
};

// The widest entry in logical pixels, measured as drawn at scale.
int textWidth(OptionMenu& menu, double scale) {
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_A8, 1, 1);
    cairo_t* cr = cairo_create(s);
    int w = 0;
    {
        DrawContext dc(cr, scale);
        dc.setFont(menu.font());
        for (int i = 0; i < menu.nbEntries(); ++i) {
            w = std::max(w, static_cast<int>(dc.stringWidth(menu.entry(i)) + 0.99));
        }
    }
    cairo_destroy(cr);
    cairo_surface_destroy(s);
    return w;
}

bool MenuPopup::open(OptionMenu& menu, Point at, int avoidLeft) {
    MenuWindow w;
    w.menu = &menu;
    w.flags = menu.allFlags();
    w.nav = MenuNavigator(w.flags);
    xcb_screen_t* screen = p_.screen();
    const int columnWidth =
        std::max(kMinWidth, textWidth(menu, scale_.factor()) + kCheckColumn + kArrowColumn);
    // Long menus break into columns at the screen's height, in logical pixels.
    const int screenHeight = static_cast<int>(screen->height_in_pixels / scale_.factor());
    w.items = MenuLayout::layoutColumns(w.flags, columnWidth, screenHeight);
    w.size = MenuLayout::menuSize(w.items, columnWidth);
    const Rect pixels = scale_.toDevice(Rect(0, 0, w.size.x, w.size.y));
    const int width = pixels.width();
    const int height = pixels.height();
    Point pos = MenuLayout::placeOnScreen(at, width, height, screen->width_in_pixels,
                                          screen->height_in_pixels);
    // A sub-menu that does not fit on the right opens on the left of its parent.
    if (avoidLeft >= 0 && pos.x < at.x) pos.x = std::max(0, avoidLeft - width);
    w.rect = Rect::fromSize(pos.x, pos.y, width, height);
    w.window = xcb_generate_id(c_);
    const uint32_t values[] = {
        screen->white_pixel, 1,
        XCB_EVENT_MASK_EXPOSURE | XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
            XCB_EVENT_MASK_POINTER_MOTION | XCB_EVENT_MASK_KEY_PRESS};
    xcb_create_window(c_, XCB_COPY_FROM_PARENT, w.window, screen->root,
                      static_cast<int16_t>(pos.x), static_cast<int16_t>(pos.y),
                      static_cast<uint16_t>(width), static_cast<uint16_t>(height), 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, screen->root_visual,
                      XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
    xcb_visualtype_t* visual = nullptr;
    for (auto d = xcb_screen_allowed_depths_iterator(screen); d.rem && !visual; xcb_depth_next(&d)) {
        for (auto v = xcb_depth_visuals_iterator(d.data); v.rem; xcb_visualtype_next(&v)) {
            if (v.data->visual_id == screen->root_visual) {
                visual = v.data;
                break;
            }
        }
    }
    if (!visual) {
        xcb_destroy_window(c_, w.window);
        return false;
    }
    w.surface = cairo_xcb_surface_create(c_, w.window, visual, width, height);
    xcb_map_window(c_, w.window);
    stack_.push_back(std::move(w));
    draw(stack_.back());
    xcb_flush(c_);
    return true;
}

void MenuPopup::closeLast() {
    MenuWindow& w = stack_.back();
    if (w.surface) {
        cairo_surface_finish(w.surface);
        cairo_surface_destroy(w.surface);
    }
    xcb_destroy_window(c_, w.window);
    stack_.pop_back();
}

void MenuPopup::draw(MenuWindow& w) {
    if (!w.surface) return;
    cairo_t* cr = cairo_create(w.surface);
    {
        DrawContext dc(cr, scale_.factor());
        const int width = w.size.x;
        dc.setFillColor(kMenuBack);
        dc.fillRect(Rect(0, 0, width, w.size.y));
        dc.setLineColor(kMenuBorder);
        dc.setLineWidth(1.0);
        dc.drawRect(Rect(0, 0, width, w.size.y));
        dc.setFont(w.menu->font());
        const bool checkStyle = (w.menu->style() & OptionMenu::kCheckStyle) != 0;
        for (int i = 0; i < static_cast<int>(w.flags.size()); ++i) {
            const uint32_t f = w.flags[static_cast<size_t>(i)];
            const Rect& slot = w.items[static_cast<size_t>(i)];
            const Rect item(slot.left + 1, slot.top, slot.right - 1, slot.bottom);
            if (f & kMenuSeparator) {
                dc.setLineColor(kDisabledText);
                const int y = (item.top + item.bottom) / 2;
                dc.drawLine(Point{item.left + 4, y}, Point{item.right - 5, y});
                continue;
            }
            const bool lit = i == w.nav.highlighted();
            if (lit) {
                dc.setFillColor(kHighlight);
                dc.fillRect(item);
            }
            Color text = lit ? kWhiteColor : kBlackColor;
            if (f & (kMenuDisabled | kMenuTitle)) text = kDisabledText;
            if (checkStyle && (f & kMenuChecked)) {
                // A check mark drawn with lines, independent of the font.
                dc.setLineColor(text);
                dc.setLineWidth(2.0);
                const int cy = (item.top + item.bottom) / 2;
                const int x = slot.left;
                dc.drawLine(Point{x + 5, cy}, Point{x + 8, cy + 3});
                dc.drawLine(Point{x + 8, cy + 3}, Point{x + 13, cy - 4});
                dc.setLineWidth(1.0);
            }
            dc.setFontColor(text);
            dc.drawString(w.menu->entry(i),
                          Rect(slot.left + kCheckColumn, item.top, slot.right - kArrowColumn,
                               item.bottom),
                          HoriAlign::Left);
            if (f & kMenuSubmenu) {
                const int cy = (item.top + item.bottom) / 2;
                cairo_move_to(cr, slot.right - 11, cy - 4);
                cairo_line_to(cr, slot.right - 6, cy);
                cairo_line_to(cr, slot.right - 11, cy + 4);
                cairo_close_path(cr);
                cairo_set_source_rgb(cr, text.red / 255.0, text.green / 255.0, text.blue / 255.0);
                cairo_fill(cr);
            }
        }
    }
    cairo_destroy(cr);
    cairo_surface_flush(w.surface);
}

int MenuPopup::menuAt(int rootX, int rootY) const {
    for (int i = static_cast<int>(stack_.size()) - 1; i >= 0; --i) {
        if (stack_[static_cast<size_t>(i)].rect.contains(Point{rootX, rootY})) return i;
    }
    return -1;
}

int MenuPopup::itemAt(const MenuWindow& w, int rootX, int rootY) const {
    return MenuLayout::itemAt(w.items,
                              scale_.toLogical(Point{rootX - w.rect.left, rootY - w.rect.top}));
}

void MenuPopup::highlight(size_t level, int index) {
    MenuWindow& w = stack_[level];
    if (w.nav.highlighted() == index) return;
    w.nav.setHighlighted(index);
    draw(w);
}

void MenuPopup::openSubmenuOf(size_t level) {
    while (stack_.size() > level + 1) closeLast();
    MenuWindow& w = stack_[level];
    const int index = w.nav.highlighted();
    if (!w.nav.highlightedOpensSubmenu()) return;
    OptionMenu* sub = w.menu->submenu(index);
    if (!sub || sub->nbEntries() == 0) return;
    const Rect& item = w.items[static_cast<size_t>(index)];
    const Point at = scale_.toDevice(Point{item.right - 2, item.top - MenuLayout::kPadding});
    const Point avoid = scale_.toDevice(Point{item.left + 2, 0});
    open(*sub, Point{w.rect.left + at.x, w.rect.top + at.y}, w.rect.left + avoid.x);
}

void MenuPopup::choose(size_t level, int index) {
    MenuWindow& w = stack_[level];
    if (!w.nav.isSelectable(index)) return;
    if (w.flags[static_cast<size_t>(index)] & kMenuSubmenu) {
        w.nav.setHighlighted(index);
        draw(w);
        openSubmenuOf(level);
        return;
    }
    top_.setLastChoice(w.menu, index);
    chosen_ = true;
    done_ = true;
}

void MenuPopup::handle(xcb_generic_event_t* e) {
    const uint8_t type = e->response_type & 0x7F;
    switch (type) {
        case XCB_EXPOSE: {
            auto* ev = reinterpret_cast<xcb_expose_event_t*>(e);
            for (MenuWindow& w : stack_) {
                if (w.window == ev->window) draw(w);
            }
            if (ev->window == p_.windowId()) p_.handleEvent(e, true);
            break;
        }
        case XCB_DESTROY_NOTIFY:
            p_.handleEvent(e, true);
            if (!p_.isOpen()) done_ = true;
            break;
        case XCB_MOTION_NOTIFY: {
            auto* ev = reinterpret_cast<xcb_motion_notify_event_t*>(e);
            const int level = menuAt(ev->root_x, ev->root_y);
            if (level < 0) break;
            MenuWindow& w = stack_[static_cast<size_t>(level)];
            const int index = itemAt(w, ev->root_x, ev->root_y);
            armed_ = true;
            if (!w.nav.isSelectable(index)) break;
            if (w.nav.highlighted() != index) {
                highlight(static_cast<size_t>(level), index);
                openSubmenuOf(static_cast<size_t>(level));
            }
            break;
        }
        case XCB_BUTTON_PRESS: {
            auto* ev = reinterpret_cast<xcb_button_press_event_t*>(e);
            if (ev->detail > 3) break;  // wheel
            pressInside_ = menuAt(ev->root_x, ev->root_y) >= 0;
            if (!pressInside_) done_ = true;  // a click outside closes
            armed_ = true;
            break;
        }
        case XCB_BUTTON_RELEASE: {
            auto* ev = reinterpret_cast<xcb_button_release_event_t*>(e);
            if (ev->detail > 3) break;
            const int level = menuAt(ev->root_x, ev->root_y);
            if (level < 0 || !armed_) break;
            const int index = itemAt(stack_[static_cast<size_t>(level)], ev->root_x, ev->root_y);
            if (index >= 0) choose(static_cast<size_t>(level), index);
            break;
        }
        case XCB_KEY_PRESS: {
            auto* ev = reinterpret_cast<xcb_key_press_event_t*>(e);
            const KeyEvent key = p_.keyboard().translate(ev->detail, ev->state);
            const size_t level = stack_.size() - 1;
            MenuWindow& w = stack_[level];
            switch (key.virtualKey) {
                case VirtualKey::Escape: done_ = true; break;
                case VirtualKey::Down: w.nav.down(); draw(w); break;
                case VirtualKey::Up: w.nav.up(); draw(w); break;
                case VirtualKey::Home: w.nav.home(); draw(w); break;
                case VirtualKey::End: w.nav.end(); draw(w); break;
                case VirtualKey::Right:
                    if (w.nav.highlightedOpensSubmenu()) {
                        openSubmenuOf(level);
                        if (stack_.size() > level + 1) {
                            stack_.back().nav.home();
                            draw(stack_.back());
                        }
                    }
                    break;
                case VirtualKey::Left:
                    if (stack_.size() > 1) closeLast();
                    break;
                case VirtualKey::Return:
                    if (w.nav.highlighted() >= 0) {
                        choose(level, w.nav.highlighted());
                        if (!done_ && stack_.size() > level + 1) {
                            stack_.back().nav.home();
                            draw(stack_.back());
                        }
                    }
                    break;
                default: break;
            }
            break;
        }
        default:
            // Frame events other than drawing are dropped while the menu is up.
            break;
    }
}

bool MenuPopup::run(Point rootPoint) {
    if (!open(top_, rootPoint, -1)) return false;
    const xcb_window_t grabWindow = stack_.front().window;
    // Grabs may fail (another client holds them); the menu still works by
    // its own windows' events then.
    free(xcb_grab_pointer_reply(
        c_,
        xcb_grab_pointer(c_, 1, grabWindow,
                         XCB_EVENT_MASK_BUTTON_PRESS | XCB_EVENT_MASK_BUTTON_RELEASE |
                             XCB_EVENT_MASK_POINTER_MOTION,
                         XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC, XCB_NONE, XCB_NONE,
                         XCB_CURRENT_TIME),
        nullptr));
    free(xcb_grab_keyboard_reply(c_,
                                 xcb_grab_keyboard(c_, 1, grabWindow, XCB_CURRENT_TIME,
                                                   XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                 nullptr));
    xcb_flush(c_);
    while (!done_) {
        if (xcb_connection_has_error(c_)) break;
        xcb_generic_event_t* e = xcb_poll_for_event(c_);
        if (!e) {
            p_.drawDirty();
            pollfd fd{xcb_get_file_descriptor(c_), POLLIN, 0};
            poll(&fd, 1, 50);
            continue;
        }
        handle(e);
        std::free(e);
        xcb_flush(c_);
    }
    return chosen_;
}

}  // namespace

bool X11Frame::popupMenu(OptionMenu& menu, Point where) {
    if (!connection_ || windowGone_) return false;
    // Frame point to root coordinates.
    const Point pixel = frame_.pixelScale().toDevice(where);
    xcb_translate_coordinates_reply_t* t = xcb_translate_coordinates_reply(
        connection_,
        xcb_translate_coordinates(connection_, window_, screen_->root,
                                  static_cast<int16_t>(pixel.x), static_cast<int16_t>(pixel.y)),
        nullptr);
    if (!t) return false;
    const Point root{t->dst_x, t->dst_y};
    std::free(t);
    RefPtr<OptionMenu> keep(&menu);
    MenuPopup popup(*this, menu, frame_.pixelScale());
    return popup.run(root);
}

}  // namespace varitap::gui::x11
