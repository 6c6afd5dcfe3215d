// The editor as an LV2 X11 UI, in-process: an instance made as an LV2 host
// makes it, with its control ports, and the UI opened in a host window
// through instance-access and ui:parent. Host automation moves the widgets,
// the widgets move the host's ports (the UI's write function) and gestures
// reach ui:touch, the modulators move the widgets but not the host's ports,
// and the UI opens and closes a hundred times while the plug-in runs.
#include <lv2/atom/atom.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/options/options.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include <memory>

#include "EditorTestSupport.h"
#include "host/ParameterInfo.h"
#include "host/lv2/Lv2Effect.h"
#include "host/lv2/Lv2Ui.h"

namespace varitap::test {
namespace {

// An LV2 host around one in-process instance and its UI.
class Lv2UiHost : public HostWindow {
public:
    Lv2UiHost() {
        const LV2_Feature mapFeature{LV2_URID__map, &map_};
        const LV2_Feature* features[] = {&mapFeature, nullptr};
        effect_.reset(Lv2Effect::create(44100.0, features));
        for (int32_t i = 0; i < kParameterCount; ++i) {
            control[i] = parameterInfo(i).defaultValue;
            effect_->connectPort(static_cast<uint32_t>(i), &control[i]);
        }
        for (uint32_t c = 0; c < 2; ++c) {
            effect_->connectPort(Lv2Effect::kInputPort + c, audio_[c]);
            effect_->connectPort(Lv2Effect::kOutputPort + c, audio_[c]);
        }
        effect_->activate();
    }
    ~Lv2UiHost() {
        closeUi();
        effect_.reset();
    }

    Lv2Effect& effect() { return *effect_; }
    DelayEditor* editor() { return static_cast<DelayEditor*>(effect_->core().getEditor()); }

    // scale: the host's ui:scaleFactor option, none when 0.
    bool openUi(float scale = 0.0f) {
        const LV2UI_Descriptor* d = lv2UiDescriptor();
        const LV2_Feature instance{LV2_INSTANCE_ACCESS_URI, effect_.get()};
        const LV2_Feature parentFeature{LV2_UI__parent, parent()};
        const LV2_Feature resize{LV2_UI__resize, &resize_};
        const LV2_Feature touch{LV2_UI__touch, &touch_};
        const LV2_Feature mapFeature{LV2_URID__map, &map_};
        const LV2_Options_Option options[] = {
            {LV2_OPTIONS_INSTANCE, 0, map_.map(map_.handle, LV2_UI__scaleFactor), sizeof scale,
             map_.map(map_.handle, LV2_ATOM__Float), &scale},
            {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr},
        };
        const LV2_Feature optionsFeature{LV2_OPTIONS__options, const_cast<LV2_Options_Option*>(options)};
        const LV2_Feature* features[] = {&instance, &parentFeature, &resize, &touch, &mapFeature,
                                         scale > 0.0f ? &optionsFeature : nullptr, nullptr};
        widget = nullptr;
        ui_ = d->instantiate(d, Lv2Effect::kUri, "", &Lv2UiHost::write, this, &widget, features);
        return ui_ != nullptr;
    }
    int idle() {
        auto* iface = static_cast<const LV2UI_Idle_Interface*>(lv2UiDescriptor()->extension_data(LV2_UI__idleInterface));
        return iface->idle(ui_);
    }
    void closeUi() {
        if (ui_) lv2UiDescriptor()->cleanup(ui_);
        ui_ = nullptr;
    }
    void run(uint32_t frames = 256) { effect_->run(frames); }

    float control[kParameterCount] = {};
    LV2UI_Widget widget = nullptr;

private:
    static uint32_t mapUri(LV2_URID_Map_Handle handle, const char* uri) {
        auto* uris = static_cast<std::vector<std::string>*>(handle);
        for (size_t i = 0; i < uris->size(); ++i) {
            if ((*uris)[i] == uri) return static_cast<uint32_t>(i + 1);
        }
        uris->push_back(uri);
        return static_cast<uint32_t>(uris->size());
    }
    static void write(LV2UI_Controller controller, uint32_t port, uint32_t size, uint32_t format, const void* buffer) {
        float value = 0.0f;
        if (size == sizeof value && format == 0) std::memcpy(&value, buffer, sizeof value);
        static_cast<Lv2UiHost*>(controller)->log.value(port, value);
    }
    static int resizeUi(LV2UI_Feature_Handle handle, int w, int h) {
        static_cast<Lv2UiHost*>(handle)->log.add("resize " + std::to_string(w) + " " + std::to_string(h));
        return 0;
    }
    static void touchPort(LV2UI_Feature_Handle handle, uint32_t port, bool grabbed) {
        static_cast<Lv2UiHost*>(handle)->log.edit(grabbed ? "begin" : "end", port);
    }

    std::vector<std::string> uris_;
    LV2_URID_Map map_{&uris_, &Lv2UiHost::mapUri};
    LV2UI_Resize resize_{this, &Lv2UiHost::resizeUi};
    LV2UI_Touch touch_{this, &Lv2UiHost::touchPort};
    float audio_[2][256] = {};
    std::unique_ptr<Lv2Effect> effect_;
    LV2UI_Handle ui_ = nullptr;
};

TEST(Lv2Ui, WidgetsFollowTheHostAndTheModulatorsMoveTheHostsPortsOpenAHundredTimesAndTakeTheHostsScale) {
    if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
    ConfigHome home;
    Lv2UiHost host;
    ASSERT_TRUE(host.openUi());
    ASSERT_NE(host.widget, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(host.widget), host.editor()->frame()->windowId());
    EXPECT_EQ(host.idle(), 0);
    EXPECT_EQ(host.log.events(), std::vector<std::string>{"resize 865 400"});
    host.log.clear();

    // Host automation: a port the host moves reaches the widget.
    const int32_t volume = tapParameterIndex(0, kTapVolume);
    host.control[volume] = 0.25f;
    host.run();
    EXPECT_FLOAT_EQ(host.editor()->volumeKnob(0)->value(), 0.25f);

    // The user: a gesture on the feedback knob reaches the host's port and
    // its touch.
    const int32_t feedback = tapParameterIndex(0, kTapFeedback);
    gui::Knob* knob = host.editor()->feedbackKnob(0);
    host.editor()->beginEdit(feedback);
    knob->setValue(0.5f);
    host.editor()->valueChanged(nullptr, knob);
    host.editor()->endEdit(feedback);
    EXPECT_EQ(host.log.events(), (std::vector<std::string>{"begin 23", "value 23 0.5", "end 23"}));
    EXPECT_FLOAT_EQ(host.effect().core().getParameter(feedback), 0.5f);
    host.log.clear();

    // A modulator aimed at the volume moves the knob; the host's port keeps
    // the host's value and hears nothing from the audio thread.
    host.control[modulatorParameterIndex(0, kModulatorIndex)] = static_cast<float>(volume);
    host.control[modulatorParameterIndex(0, kModulatorSpeed)] = 0.5f;
    host.control[modulatorParameterIndex(0, kModulatorMax)] = 1.0f;
    host.control[modulatorParameterIndex(0, kModulatorPower)] = 1.0f;
    float lowest = 1.0f, highest = 0.0f;
    for (int block = 0; block < 400; ++block) {
        host.run();
        lowest = std::min(lowest, host.editor()->volumeKnob(0)->value());
        highest = std::max(highest, host.editor()->volumeKnob(0)->value());
    }
    EXPECT_LT(lowest, 0.2f);
    EXPECT_GT(highest, 0.8f);
    EXPECT_EQ(host.control[volume], 0.25f);
    EXPECT_TRUE(host.log.events().empty());

    host.closeUi();

    // The UI opens and closes a hundred times while the modulator runs.
    openAndCloseAHundredTimes(
        host.display(), host.hostWindow(),
        [&] {
            const bool opened = host.openUi();
            if (opened) host.idle();
            return opened;
        },
        [&] { host.closeUi(); }, [&] { host.run(); });
    EXPECT_EQ(host.editor()->frame(), nullptr);
    EXPECT_EQ(host.log.events().size(), 101u);  // one resize per opening

    // The host's ui:scaleFactor sizes the editor; a host without the option
    // hands the choice back.
    host.log.clear();
    ASSERT_TRUE(host.openUi(2.0f));
    EXPECT_EQ(host.editor()->scale(), 2.0);
    host.closeUi();
    ASSERT_TRUE(host.openUi());
    EXPECT_EQ(host.editor()->scale(), 1.0);
    EXPECT_EQ(host.log.events(), (std::vector<std::string>{"resize 1730 800", "resize 865 400"}));
}

}  // namespace
}  // namespace varitap::test
