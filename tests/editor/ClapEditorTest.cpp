// The CLAP plug-in's editor and events as a CLAP host sees them: an
// in-process instance behind its plug-in record, a host that offers its
// timers and descriptor loop or not, and the editor opened in a host window
// on the private Xvfb server. The modulators' movements come out of process
// as live values the host does not record; a knob turned with the mouse
// comes out as gesture begin, values and gesture end; the editor's X
// connection and idle timer are registered with the host while the editor
// exists, and without them the editor runs on a timer of its own.
#include <poll.h>

#include <chrono>
#include <set>

#include "EditorTestSupport.h"
#include "host/clap/ClapEffect.h"

namespace varitap::test {
namespace {

using namespace clap;

// A CLAP host around one instance. It offers timer-support and
// posix-fd-support as told, logs what the plug-in registers ("timer 1",
// "fd 7", "-timer 1", "-fd 7") and the events it sends ("begin 23",
// "value 23 0.5 flags 0", "end 23"), and runs a main loop that calls the
// plug-in back.
class ClapGuiHost : public HostWindow {
public:
    ClapGuiHost(bool offersTimer, bool offersFd) : offersTimer_(offersTimer), offersFd_(offersFd) {
        record_.clap_version = kVersion;
        record_.host_data = this;
        record_.name = record_.vendor = record_.url = record_.version = "test";
        record_.get_extension = [](const clap_host* h, const char* id) -> const void* {
            if (std::strcmp(id, kExtTimerSupport) == 0 && of(h)->offersTimer_) return &of(h)->timerSupport_;
            if (std::strcmp(id, kExtPosixFdSupport) == 0 && of(h)->offersFd_) return &of(h)->fdSupport_;
            return nullptr;
        };
        record_.request_restart = record_.request_process = [](const clap_host*) {};
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
        clap_event_param_value e{};
        e.header = {sizeof e, 0, kCoreEventSpaceId, kEventParamValue, 0};
        e.param_id = static_cast<clap_id>(index);
        e.value = value;
        in_.push_back(e);
        params_->flush(plugin_, &inEvents_, &outEvents_);
        in_.clear();
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
        const clap_process p{-1, 256, &transport, &in, &out, 1, 1, &inEvents_, &outEvents_};
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
    clap_host record_{};
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
    std::vector<clap_event_param_value> in_;
    clap_input_events inEvents_{this, [](const clap_input_events* l) {
                                    return static_cast<uint32_t>(static_cast<ClapGuiHost*>(l->ctx)->in_.size());
                                },
                                [](const clap_input_events* l, uint32_t i) -> const clap_event_header* {
                                    return &static_cast<ClapGuiHost*>(l->ctx)->in_[i].header;
                                }};
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
