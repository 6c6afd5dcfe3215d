// The text field, and the modal dialog built from the toolkit's parts the
// way the name-entry dialog uses them.
#include "gui/TextField.h"

#include <gtest/gtest.h>
#include <xkbcommon/xkbcommon-keysyms.h>

#include <cstring>
#include <string>
#include <thread>

#include "XServer.h"
#include "gui/Buttons.h"
#include "gui/Frame.h"
#include "gui/ParamDisplay.h"

namespace varitap::gui {
namespace {

using test::HostDisplay;
using test::waitFor;

TEST(TextFieldTest, TypesOnlyWhileFocused) {
    auto frame = makeRef<Frame>(Rect(0, 0, 400, 140));
    auto field = makeRef<TextField>(Rect(40, 50, 380, 66));
    frame->addView(field.get());
    KeyEvent a;
    std::strcpy(a.text, "a");
    EXPECT_EQ(frame->dispatchKeyDown(a), 0);  // no focus yet
    EXPECT_EQ(field->text(), "");
    frame->dispatchMouseDown(Point{50, 55}, kLButton);
    EXPECT_TRUE(field->hasFocus());
    EXPECT_EQ(frame->focusView(), field.get());
    EXPECT_EQ(frame->dispatchKeyDown(a), 1);
    std::strcpy(a.text, "\xC3\xBC");  // ü
    frame->dispatchKeyDown(a);
    EXPECT_EQ(field->text(), "a\xC3\xBC");
    frame->setFocusView(nullptr);
    EXPECT_FALSE(field->hasFocus());
    EXPECT_EQ(frame->dispatchKeyDown(a), 0);
}

// OK ends the loop with 1, Cancel with 0.
class DialogButtons : public ControlListener {
public:
    explicit DialogButtons(Frame& f) : frame_(f) {}
    void valueChanged(DrawContext*, Control* c) override {
        if (c->value() > 0.5f) frame_.endModal(c->tag());
    }

private:
    Frame& frame_;
};

struct NameDialog {
    RefPtr<Frame> frame = makeRef<Frame>(Rect(0, 0, 400, 140));
    DialogButtons buttons{*frame};
    RefPtr<TextField> field = makeRef<TextField>(Rect(40, 50, 380, 66));
    RefPtr<PushButton> ok = makeRef<PushButton>(Rect(311, 100, 380, 120), &buttons, 1, "OK");
    RefPtr<PushButton> cancel =
        makeRef<PushButton>(Rect(230, 100, 299, 120), &buttons, 0, "Cancel");

    bool open(uintptr_t owner) {
        frame->setBackgroundColor(Color{230, 230, 230, 255});
        frame->addView(makeRef<TextLabel>(Rect(20, 14, 380, 30), "Enter a name:").get());
        frame->addView(field.get());
        frame->addView(ok.get());
        frame->addView(cancel.get());
        ok->setDefaultLook(true);
        frame->setDefaultButton(ok.get());
        frame->setCancelButton(cancel.get());
        frame->setFocusView(field.get());
        return frame->openDialog(owner, "Varitap");
    }
};

class DialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!test::haveDisplay() || !host.ok()) GTEST_SKIP() << "no X server";
        hostTop = host.createWindow(865, 400);
        // The editor's window is a child of the host's top-level window.
        editorWindow = xcb_generate_id(host.connection());
        xcb_create_window(host.connection(), XCB_COPY_FROM_PARENT, editorWindow, hostTop, 0, 0, 100,
                          100, 0, XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, 0, nullptr);
        xcb_map_window(host.connection(), editorWindow);
        host.sync();
    }
    HostDisplay host;
    xcb_window_t hostTop = 0;
    xcb_window_t editorWindow = 0;
};

TEST_F(DialogTest, TypedAndEditedNameConfirmedWithReturn) {
    NameDialog dialog;
    ASSERT_TRUE(dialog.open(editorWindow));
    const xcb_window_t w = dialog.frame->windowId();
    // A real top-level dialog: transient for the host's top-level window,
    // dialog type, modal state, centred on the owner.
    EXPECT_EQ(host.property32(w, "WM_TRANSIENT_FOR"), std::vector<uint32_t>{hostTop});
    EXPECT_EQ(host.property32(w, "_NET_WM_WINDOW_TYPE"),
              std::vector<uint32_t>{host.atom("_NET_WM_WINDOW_TYPE_DIALOG")});
    EXPECT_EQ(host.property32(w, "_NET_WM_STATE"),
              std::vector<uint32_t>{host.atom("_NET_WM_STATE_MODAL")});
    const Rect g = host.geometry(w);
    EXPECT_EQ(g.width(), 400);
    EXPECT_EQ(g.height(), 140);
    EXPECT_EQ(g.left, 10 + (865 - 400) / 2);
    EXPECT_EQ(g.top, 10 + (400 - 140) / 2);

    std::thread user([&] {
        host.typeText(w, "Old");
        host.key(w, XKB_KEY_a, XCB_MOD_MASK_CONTROL);  // select all, then type over it
        host.typeText(w, "Nmae");
        for (uint32_t k : {XKB_KEY_Left, XKB_KEY_Left, XKB_KEY_BackSpace, XKB_KEY_Right}) host.key(w, k);
        host.typeText(w, "m");
        host.key(w, XKB_KEY_End);
        host.typeText(w, " Echo");
        host.key(w, XKB_KEY_Return);
    });
    const int result = dialog.frame->runModal();
    user.join();
    EXPECT_EQ(result, 1);
    EXPECT_EQ(dialog.field->text(), "Name Echo");
    dialog.frame->close();
}

TEST_F(DialogTest, EscapeCancelsAndEmptyReturnConfirmsEmpty) {
    {
        NameDialog dialog;
        ASSERT_TRUE(dialog.open(editorWindow));
        const xcb_window_t w = dialog.frame->windowId();
        std::thread user([&] {
            host.typeText(w, "abc");
            host.key(w, XKB_KEY_Escape);
        });
        EXPECT_EQ(dialog.frame->runModal(), 0);
        user.join();
    }
    {
        NameDialog dialog;
        ASSERT_TRUE(dialog.open(0));  // no owner: centred on the screen
        const xcb_window_t w = dialog.frame->windowId();
        EXPECT_TRUE(host.property32(w, "WM_TRANSIENT_FOR").empty());
        EXPECT_EQ(host.geometry(w).left, (1280 - 400) / 2);
        std::thread user([&] { host.key(w, XKB_KEY_Return); });
        EXPECT_EQ(dialog.frame->runModal(), 1);
        user.join();
        EXPECT_EQ(dialog.field->text(), "");
    }
    {
        // Clicking Cancel with the mouse, and the window manager's close.
        NameDialog dialog;
        ASSERT_TRUE(dialog.open(editorWindow));
        const xcb_window_t w = dialog.frame->windowId();
        std::thread user([&] {
            host.button(w, 250, 110, 1, true);
            host.button(w, 250, 110, 1, false, XCB_BUTTON_MASK_1);
        });
        EXPECT_EQ(dialog.frame->runModal(), 0);
        user.join();
        std::thread wm([&] {
            xcb_client_message_event_t e{};
            e.response_type = XCB_CLIENT_MESSAGE;
            e.format = 32;
            e.window = w;
            e.type = host.atom("WM_PROTOCOLS");
            e.data.data32[0] = host.atom("WM_DELETE_WINDOW");
            xcb_send_event(host.connection(), 0, w, XCB_EVENT_MASK_NO_EVENT,
                           reinterpret_cast<const char*>(&e));
            host.sync();
        });
        EXPECT_EQ(dialog.frame->runModal(), -1);
        wm.join();
    }
}

}  // namespace
}  // namespace varitap::gui
