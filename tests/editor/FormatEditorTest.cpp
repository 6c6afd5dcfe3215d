// The editor as each plug-in format's host opens it, in-process, in a host
// window on the private Xvfb server: the VST 2 editor opened and closed a
// hundred times under audio and automation (run under ThreadSanitizer as
// well); the LV2 X11 UI through instance-access and ui:parent, its widgets
// following the host's ports and moving them (write function, ui:touch), not
// moved by the modulators, its size from the host's scale; the CLAP editor on the host's descriptor loop and
// timers or on a timer of its own, the modulators' movements reaching the
// host as live values it does not record.
#include <lv2/atom/atom.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/options/options.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>
#include <poll.h>

#include <chrono>
#include <memory>
#include <set>

#include "EditorTestSupport.h"
#include "host/ParameterInfo.h"
#include "host/clap/ClapEffect.h"
#include "host/lv2/Lv2Effect.h"
#include "host/lv2/Lv2Ui.h"
#include "tools/render/ClapHost.h"

namespace varitap::test {
namespace {

using namespace clap;

using EditorThreadsTest = EditorTest;

TEST_F(EditorThreadsTest, OpeningAndClosingAHundredTimesUnderAudioAndAutomation) {
    // Busy modulators: each one powered, free-running and fast, aimed at a
    // tap parameter, so that the audio thread writes parameters too.
    for (int m = 0; m < kModulatorCount; ++m) {
        hostSets(modulatorParameterIndex(m, kModulatorIndex), static_cast<float>(tapParameterIndex(m, kTapVolume)));
        hostSets(modulatorParameterIndex(m, kModulatorType), static_cast<float>(m % 4) / 3.0f);
        hostSets(modulatorParameterIndex(m, kModulatorSync), 0.0f);
        hostSets(modulatorParameterIndex(m, kModulatorSpeed), 0.01f);
        hostSets(modulatorParameterIndex(m, kModulatorPower), 1.0f);
    }
    host.dispatch(vst::effMainsChanged, 0, 1);

    auto open = [&] {
        const bool opened = host.dispatch(vst::effEditOpen, 0, 0, host.parent()) == 1;
        host.dispatch(vst::effEditIdle);
        return opened;
    };
    // One warm-up opening first: fonts and bitmaps load once for good.
    ASSERT_TRUE(open());
    host.closeEditor();
    const int descriptors = gui::test::openDescriptors();
    std::atomic<bool> stop{false};
    std::atomic<long> changes{0}, blocks{0};
    std::thread automation([&] {
        unsigned seed = 12345;
        while (!stop) {
            seed = seed * 1103515245u + 12345u;
            const int32_t index = static_cast<int32_t>((seed >> 8) % kParameterCount);
            const float value = static_cast<float>((seed >> 4) % 1000) / 999.0f;
            hostSets(index, value);  // every parameter, those the modulators write included
            ++changes;
        }
    });
    std::thread audio([&] {
        std::vector<float> left(256), right(256);
        float* channels[2] = {left.data(), right.data()};
        for (; !stop; ++blocks) {
            for (size_t i = 0; i < left.size(); ++i) left[i] = right[i] = (i % 64) / 64.0f - 0.5f;
            host.aeffect()->processReplacing(host.aeffect(), channels, channels, 256);
        }
    });
    for (int round = 0; round < 100; ++round) {
        EXPECT_TRUE(open()) << "round " << round;
        host.closeEditor();
    }
    stop = true;
    automation.join();
    audio.join();
    EXPECT_GT(changes.load(), 1000);
    EXPECT_GT(blocks.load(), 100);
    // No window is left under the host's, no menu and no descriptor (X connection).
    EXPECT_TRUE(gui::test::waitFor([&] { return host.display().children(host.hostWindow()).empty(); }));
    EXPECT_TRUE(host.display().popupWindows().empty());
    EXPECT_EQ(gui::test::openDescriptors(), descriptors);
    EXPECT_EQ(host.editor()->frame(), nullptr);
}

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
    ~Lv2UiHost() { closeUi(); }

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

TEST(Lv2Ui, WidgetsFollowTheHostAndTheModulatorsMoveTheHostsPortsAndTakeTheHostsScale) {
    if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
    ConfigHome home;
    Lv2UiHost host;
    ASSERT_TRUE(host.openUi());
    ASSERT_NE(host.widget, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(host.widget), host.editor()->frame()->windowId());
    EXPECT_EQ(host.idle(), 0);
    EXPECT_EQ(host.log.events(), std::vector<std::string>{"resize 865 400"});
    host.log.clear();

    const int32_t volume = tapParameterIndex(0, kTapVolume);
    host.control[volume] = 0.25f;

    // The user: gestures on the feedback knob and on tap 1's source menu
    // (the first port) reach the host's ports and its touch.
    const int32_t feedback = tapParameterIndex(0, kTapFeedback);
    const std::pair<gui::Control*, float> gestures[] = {{host.editor()->feedbackKnob(0), 0.5f},
                                                        {host.editor()->inputMenu(0), 11.0f}};
    for (const auto& [control, value] : gestures) {
        host.editor()->beginEdit(control->tag());
        control->setValue(value);
        host.editor()->valueChanged(nullptr, control);
        host.editor()->endEdit(control->tag());
    }
    EXPECT_EQ(host.log.events(),
              (std::vector<std::string>{"begin 23", "value 23 0.5", "end 23", "begin 0", "value 0 0.25", "end 0"}));
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
        host.effect().run(256);
        lowest = std::min(lowest, host.editor()->volumeKnob(0)->value());
        highest = std::max(highest, host.editor()->volumeKnob(0)->value());
    }
    EXPECT_LT(lowest, 0.2f);
    EXPECT_GT(highest, 0.8f);
    EXPECT_EQ(host.control[volume], 0.25f);
    EXPECT_TRUE(host.log.events().empty());

    host.closeUi();
    EXPECT_EQ(host.editor()->frame(), nullptr);

    // The host's ui:scaleFactor sizes the editor; a host without the option
    // hands the choice back.
    ASSERT_TRUE(host.openUi(2.0f));
    EXPECT_EQ(host.editor()->scale(), 2.0);
    host.closeUi();
    ASSERT_TRUE(host.openUi());
    EXPECT_EQ(host.editor()->scale(), 1.0);
    EXPECT_EQ(host.log.events(), (std::vector<std::string>{"resize 1730 800", "resize 865 400"}));
}

// A CLAP host around one instance. It offers timer-support and
// posix-fd-support as told, logs what the plug-in registers ("timer 1",
// "fd 7", "-timer 1", "-fd 7") and the events it sends ("begin 23",
// "value 23 0.5 flags 0", "end 23"), and runs a main loop that calls the
// plug-in back.
class ClapGuiHost : public HostWindow {
public:
    ClapGuiHost(bool offersTimer, bool offersFd) : offersTimer_(offersTimer), offersFd_(offersFd) {
        // render::ClapHost's record, with the extensions and callbacks of this host.
        record_.host_data = this;
        record_.get_extension = [](const clap_host* h, const char* id) -> const void* {
            if (std::strcmp(id, kExtTimerSupport) == 0 && of(h)->offersTimer_) return &of(h)->timerSupport_;
            if (std::strcmp(id, kExtPosixFdSupport) == 0 && of(h)->offersFd_) return &of(h)->fdSupport_;
            return nullptr;
        };
        record_.request_callback = [](const clap_host* h) { of(h)->callbackWanted_ = true; };
        timerSupport_ = {[](const clap_host* h, uint32_t, clap_id* id) {
                             of(h)->timers_.insert(*id = ++of(h)->lastTimer_);
                             return of(h)->record("timer ", *id);
                         },
                         [](const clap_host* h, clap_id id) { return of(h)->timers_.erase(id) && of(h)->record("-timer ", id); }};
        fdSupport_ = {[](const clap_host* h, int fd, uint32_t flags) {
                          return flags == kFdRead && of(h)->fds_.insert(fd).second && of(h)->record("fd ", fd);
                      },
                      [](const clap_host*, int, uint32_t) { return false; },
                      [](const clap_host* h, int fd) { return of(h)->fds_.erase(fd) && of(h)->record("-fd ", fd); }};
        plugin_ = ClapEffect::create(&record_);
        plugin_->init(plugin_);
        gui_ = static_cast<const clap_plugin_gui*>(plugin_->get_extension(plugin_, kExtGui));
        params_ = static_cast<const clap_plugin_params*>(plugin_->get_extension(plugin_, kExtParams));
    }
    ~ClapGuiHost() { destroyPlugin(); }

    const clap_plugin* plugin() const { return plugin_; }
    const clap_plugin_gui& gui() const { return *gui_; }
    DelayEditor* editor() { return static_cast<DelayEditor*>(ClapEffect::of(plugin_)->core().getEditor()); }
    xcb_window_t editorWindow() { return editor()->frame()->windowId(); }
    const std::set<int>& fds() const { return fds_; }

    bool setParent() {
        const clap_window parent{kWindowApiX11, {window_}};
        return gui_->set_parent(plugin_, &parent);
    }
    bool openGui() { return gui_->create(plugin_, kWindowApiX11, false) && setParent() && gui_->show(plugin_); }
    void destroyPlugin() {
        if (plugin_) plugin_->destroy(plugin_);
        plugin_ = nullptr;
    }

    // The host's main loop for ms (one turn at least): readable descriptors,
    // timers every 30 ms (when fireTimers), and the callbacks the plug-in
    // asked for.
    void loop(int ms, bool fireTimers = true) {
        const auto* onFd = static_cast<const clap_plugin_posix_fd_support*>(plugin_->get_extension(plugin_, kExtPosixFdSupport));
        const auto* onTimer = static_cast<const clap_plugin_timer_support*>(plugin_->get_extension(plugin_, kExtTimerSupport));
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        do {
            std::vector<pollfd> ready;
            for (int fd : fds_) ready.push_back({fd, POLLIN, 0});
            poll(ready.data(), ready.size(), 10);
            for (const pollfd& p : ready) {
                if (p.revents & POLLIN) onFd->on_fd(plugin_, p.fd, kFdRead);
            }
            if (fireTimers && std::chrono::steady_clock::now() >= nextTick_) {
                nextTick_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(30);
                for (clap_id id : std::set<clap_id>(timers_)) onTimer->on_timer(plugin_, id);
            }
            if (callbackWanted_.exchange(false)) plugin_->on_main_thread(plugin_);
            display_.sync();
        } while (std::chrono::steady_clock::now() < end);
    }
    bool callbackWanted() const { return callbackWanted_; }

    // Values from the host, through the params flush.
    void set(int32_t index, double value) {
        render::ClapInputEvents in;
        in.add(static_cast<clap_id>(index), value);
        params_->flush(plugin_, &in.record, &outEvents_);
    }
    double value(int32_t index) const {
        double v = -1.0;
        params_->get_value(plugin_, static_cast<clap_id>(index), &v);
        return v;
    }
    // One block of silence while the host plays and records; the events of
    // this block and of earlier flushes.
    void process() {
        float l[256] = {}, r[256] = {};
        float* channels[2] = {l, r};
        clap_audio_buffer in{channels, nullptr, 2, 0, 0}, out{channels, nullptr, 2, 0, 0};
        clap_event_transport transport{};
        transport.header = {sizeof transport, 0, kCoreEventSpaceId, kEventTransport, 0};
        transport.flags = kTransportHasTempo | kTransportIsPlaying | kTransportIsRecording;
        transport.tempo = 120.0;
        const render::ClapInputEvents none;
        const clap_process p{-1, 256, &transport, &in, &out, 1, 1, &none.record, &outEvents_};
        plugin_->process(plugin_, &p);
    }

private:
    static ClapGuiHost* of(const clap_host* h) { return static_cast<ClapGuiHost*>(h->host_data); }
    bool record(const char* call, uint32_t n) {
        log.add(call + std::to_string(n));
        return true;
    }
    static bool push(const clap_output_events* list, const clap_event_header* e) {
        HostLog& log = static_cast<ClapGuiHost*>(list->ctx)->log;
        if (e->type == kEventParamValue) {
            const auto* value = reinterpret_cast<const clap_event_param_value*>(e);
            log.value(value->param_id, value->value, " flags " + std::to_string(e->flags));
        } else if (e->type == kEventParamGestureBegin || e->type == kEventParamGestureEnd) {
            log.edit(e->type == kEventParamGestureBegin ? "begin" : "end",
                     reinterpret_cast<const clap_event_param_gesture*>(e)->param_id);
        }
        return true;
    }

    bool offersTimer_, offersFd_;
    render::ClapHost host_;
    clap_host& record_ = host_.record;
    clap_host_timer_support timerSupport_{};
    clap_host_posix_fd_support fdSupport_{};
    const clap_plugin* plugin_ = nullptr;
    const clap_plugin_gui* gui_ = nullptr;
    const clap_plugin_params* params_ = nullptr;
    std::set<int> fds_;
    std::set<clap_id> timers_;
    clap_id lastTimer_ = 0;
    std::atomic<bool> callbackWanted_{false};
    std::chrono::steady_clock::time_point nextTick_{};
    clap_output_events outEvents_{this, &ClapGuiHost::push};
};

// A modulator sweeping tap 1's volume while the host records: the host hears
// every movement from process, flagged live and "don't record" (the
// modulator makes it again on playback); what the host itself sets is not
// echoed.
TEST(ClapEditor, ModulatorMovementsReachTheHostAsLiveValuesItDoesNotRecord) {
    ClapGuiHost host(true, true);
    const int32_t volume = tapParameterIndex(0, kTapVolume);
    host.set(modulatorParameterIndex(0, kModulatorIndex), volume);
    host.set(modulatorParameterIndex(0, kModulatorSpeed), 0.9);
    host.set(modulatorParameterIndex(0, kModulatorMax), 1.0);
    host.set(modulatorParameterIndex(0, kModulatorPower), 1.0);
    EXPECT_TRUE(host.log.events().empty());
    ASSERT_TRUE(host.plugin()->activate(host.plugin(), 44100.0, 1, 256));
    for (int block = 0; block < 100; ++block) host.process();
    const std::string live = " flags " + std::to_string(kEventIsLive | kEventDontRecord);
    const std::vector<std::string> events = host.log.events();
    EXPECT_GT(events.size(), 50u);
    for (const std::string& e : events) {
        EXPECT_EQ(e.rfind("value " + std::to_string(volume) + " ", 0), 0u) << e;
        EXPECT_EQ(e.substr(e.size() - live.size()), live) << e;
    }
    host.plugin()->deactivate(host.plugin());
}

// The editor's X connection on the host's descriptor loop and its idle work
// on the host's timer while the editor exists. The descriptor alone drives
// it (no timer fires): a drag on tap 1's feedback knob reaches the host as
// begin, the values (recorded: no flags) and end. Each is taken off the
// loops before the connection closes, whatever order the host calls in.
TEST(ClapEditor, OnTheHostsLoopsAKnobDragReachesTheHostInsideOneGesture) {
    if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
    ConfigHome home;
    ClapGuiHost host(true, true);
    host.gui().destroy(host.plugin());  // before any create: nothing
    const int32_t feedback = tapParameterIndex(0, kTapFeedback);
    host.set(feedback, 0.2);
    ASSERT_TRUE(host.openGui());
    ASSERT_EQ(host.fds().size(), 1u);
    const int fd = *host.fds().begin();
    EXPECT_EQ(host.editor()->connectionFd(), fd);
    EXPECT_EQ(host.log.events(), (std::vector<std::string>{"timer 1", "fd " + std::to_string(fd)}));

    host.loop(100, false);
    host.log.clear();
    const gui::Point knob = centerOf(host.editor()->feedbackKnob(0));
    host.drag(host.editorWindow(), knob, {knob.x, knob.y - 30}, [] {});
    gui::test::waitFor([&] {
        host.loop(10, false);
        return host.value(feedback) > 0.39;
    });
    host.process();
    const std::vector<std::string> events = host.log.events();
    expectOneGesture(events, feedback);
    EXPECT_EQ(events[events.size() - 2], "value 23 0.4 flags 0");  // 30 pixels up: +0.2
    EXPECT_NEAR(host.value(feedback), 0.4, 1e-6);

    // A new parent window: the old connection off the loop, the new one on.
    host.log.clear();
    ASSERT_TRUE(host.setParent());
    const int again = *host.fds().begin();
    host.gui().destroy(host.plugin());
    host.gui().destroy(host.plugin());
    // Created without a window, and an instance destroyed with its editor up.
    ASSERT_TRUE(host.gui().create(host.plugin(), kWindowApiX11, false));
    host.gui().destroy(host.plugin());
    ASSERT_TRUE(host.openGui());
    const int last = *host.fds().begin();
    host.destroyPlugin();
    const auto n = [](const char* call, int number) { return call + std::to_string(number); };
    EXPECT_EQ(host.log.events(), (std::vector<std::string>{n("-fd ", fd), n("fd ", again), n("-fd ", again),
                                                           "-timer 1", "timer 2", "-timer 2", "timer 3",
                                                           n("fd ", last), n("-fd ", last), "-timer 3"}));
}

// A host with neither: the editor asks for main-thread callbacks on a timer of
// its own, handles a click there and draws it; the timer stops with the editor.
TEST(ClapEditor, WithoutTheHostsLoopsTheEditorRunsOnItsOwnTimer) {
    if (!gui::test::haveDisplay()) GTEST_SKIP() << "no X server";
    ConfigHome home;
    ClapGuiHost host(false, false);
    ASSERT_TRUE(host.openGui());
    host.loop(100);
    EXPECT_TRUE(host.log.events().empty());
    const int32_t sync = tapParameterIndex(2, kTapSync);
    const gui::Rect area = host.editor()->tapSyncButton(2)->frameRect();
    const Image before = host.display().grab(host.hostWindow(), area);
    const gui::Point button = centerOf(host.editor()->tapSyncButton(2));
    host.display().click(host.editorWindow(), button.x, button.y);
    gui::test::waitFor([&] {
        host.loop(10);
        return host.value(sync) == 1.0;
    });
    EXPECT_EQ(host.value(sync), 1.0);
    host.loop(100);
    EXPECT_GT(differingFraction(host.display().grab(host.hostWindow(), area), before, 40), 0.05);

    host.gui().destroy(host.plugin());
    host.loop(0);
    gui::test::waitFor([] { return false; }, 100);
    EXPECT_FALSE(host.callbackWanted());
}

}  // namespace
}  // namespace varitap::test
