// Varitap as a CLAP plug-in: DelayEffect behind a clap_plugin record. What is
// CLAP alone lives here: the parameter ids and their value domain, the events
// of the process call (parameter values applied at the start of the block,
// the transport), the values the instance moves itself sent back as output
// events, and the state as a byte stream. The plug-in record and its
// extension tables are in ClapEffect.cpp; the module's entry in ClapMain.cpp.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "host/DelayEffect.h"
#include "host/PluginHost.h"
#include "host/clap/ClapInterface.h"

namespace varitap {

class ClapEffect : public PluginHost {
public:
    static constexpr const char* kId = "brelmo.varitap";
    static constexpr int32_t kChannels = 2;

    // The plug-in's descriptor (one per module).
    static const clap::clap_plugin_descriptor* descriptor();
    // main thread. A new instance's record for this host, or null. The
    // instance lives until the host calls destroy.
    static const clap::clap_plugin* create(const clap::clap_host* host);

    ~ClapEffect() override;

    // The parameter domain. A parameter id is its index 0..240. Values are
    // the ones setParameter takes (0..1, a modulator's "Index" 0..240).
    static double toClap(int32_t index, float value);
    // False for a value that is not a number; values outside the range are
    // brought inside.
    static bool fromClap(int32_t index, double value, float* out);

    // PluginHost.
    const HostTimeInfo* getTimeInfo(int32_t requestFlags) override;
    bool isInputConnected(int32_t index) override { return index >= 0 && index < kChannels; }
    bool isOutputConnected(int32_t index) override { return index >= 0 && index < kChannels; }
    // On the audio thread during a block: an output event at once. On any
    // other thread: queued for the next block or flush, and the host asked
    // for a flush.
    void automate(int32_t index, float value) override;
    void beginEdit(int32_t index) override { queue(clap::kEventParamGestureBegin, index, 0.0f); }
    void endEdit(int32_t index) override { queue(clap::kEventParamGestureEnd, index, 0.0f); }
    void updateDisplay() override;
    // ui thread. Through the host's gui extension, when it has one.
    bool resizeEditor(int32_t width, int32_t height) override;

    // The instance behind a plug-in record this class made.
    static ClapEffect* of(const clap::clap_plugin* plugin) { return static_cast<ClapEffect*>(plugin->plugin_data); }
    DelayEffect& core() { return *core_; }

private:
    friend struct ClapCalls;
    struct Pending {
        uint16_t type;
        int32_t index;
        float value;
    };
    static constexpr uint32_t kQueueSize = 1024;

    explicit ClapEffect(const clap::clap_host* host);
    bool init();
    bool activate(double sampleRate, uint32_t maxFrames);
    clap::clap_process_status process(const clap::clap_process* process);
    void readTransport(const clap::clap_event_transport* transport);
    void applyEvents(const clap::clap_input_events* in);
    void sendQueued(const clap::clap_output_events* out);
    void queue(uint16_t type, int32_t index, float value);
    bool pushValue(const clap::clap_output_events* out, int32_t index, float value, uint32_t flags);
    bool valueToText(int32_t index, double value, char* text, uint32_t size);
    bool textToValue(int32_t index, const char* text, double* value);
    bool save(const clap::clap_ostream* stream);
    bool load(const clap::clap_istream* stream);
    // The editor's loops, main thread: its connection on the host's
    // descriptor loop, its idle work on the host's timer or on our own.
    void watchConnection();
    void unwatchConnection();
    void startOwnTimer();
    void stopOwnTimer();

    clap::clap_plugin plugin_;
    const clap::clap_host* host_;
    const clap::clap_host_params* hostParams_ = nullptr;
    const clap::clap_host_gui* hostGui_ = nullptr;
    const clap::clap_host_timer_support* hostTimer_ = nullptr;
    const clap::clap_host_posix_fd_support* hostFd_ = nullptr;
    clap::clap_id timer_ = clap::kInvalidId;   // the editor's idle timer, while it exists
    int watchedFd_ = -1;                       // the open editor's connection, on the host's loop
    bool guiCreated_ = false;
    // Our own idle timer, for a host without timers: a thread that asks the
    // host for a main-thread callback every tick.
    std::thread ownTimer_;
    std::mutex ownTimerMutex_;
    std::condition_variable ownTimerWake_;
    bool ownTimerStop_ = false;
    std::unique_ptr<DelayEffect> core_;
    HostTimeInfo time_;
    std::unique_ptr<float[]> silence_;   // stands in for a missing input channel
    std::unique_ptr<float[]> discard_;   // and a missing output channel
    // The block being processed: its output queue and thread.
    const clap::clap_output_events* blockOut_ = nullptr;
    std::atomic<std::thread::id> audioThread_{};
    // Values and gestures from the editor, in order, for the next block or
    // flush (one writer, the main thread; one reader).
    Pending queue_[kQueueSize];
    std::atomic<uint32_t> queueHead_{0};
    std::atomic<uint32_t> queueTail_{0};
};

}  // namespace varitap
