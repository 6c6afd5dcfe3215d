// Varitap as an LV2 plug-in: DelayEffect behind the LV2 ports. Ports 0..240
// are the parameters (the values setParameter takes), then two audio inputs,
// two audio outputs and an atom input for the host's time:Position. This is
// what is LV2 alone: the ports, the transport read from time:Position atoms
// (120 BPM, stopped, until a host says otherwise), the options the host
// passes at instantiation, and the state that the ports do not carry.
#pragma once

#include <lv2/atom/atom.h>
#include <lv2/state/state.h>
#include <lv2/ui/ui.h>
#include <lv2/urid/urid.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "host/DelayEffect.h"
#include "host/PluginHost.h"

namespace varitap {

class Lv2Effect : public PluginHost {
public:
    static constexpr const char* kUri = "urn:brelmo:varitap";
    // Port numbers after the parameters.
    static constexpr uint32_t kInputPort = kParameterCount;       // two audio inputs
    static constexpr uint32_t kOutputPort = kParameterCount + 2;  // two audio outputs
    static constexpr uint32_t kControlPort = kParameterCount + 4; // atom input (time:Position)
    static constexpr uint32_t kPortCount = kParameterCount + 5;
    static constexpr int32_t kChannels = 2;
    static constexpr double kDefaultTempo = 120.0;

    // construction thread. Null when the instance cannot be made. features
    // may carry urid:map (needed for the transport and the state) and
    // options (block-size bounds, sample rate).
    static Lv2Effect* create(double sampleRate, const LV2_Feature* const* features);
    ~Lv2Effect() override;

    // The LV2 calls (threads as the LV2 specification classes them).
    void connectPort(uint32_t port, void* data);
    void activate() { core_->resume(); }
    void deactivate() { core_->suspend(); }
    void run(uint32_t frames);
    LV2_State_Status save(LV2_State_Store_Function store, LV2_State_Handle handle);
    LV2_State_Status restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle);

    DelayEffect& core() { return *core_; }

    // ui thread. The UI that shows the instance's editor: values the editor
    // (or a preset it applies) sets go to the host's ports through
    // writeFunction, gestures through touch (may be null).
    void attachUi(LV2UI_Write_Function writeFunction, LV2UI_Controller controller, const LV2UI_Touch* touch,
                  const LV2UI_Resize* resize);
    void detachUi();

    // PluginHost.
    const HostTimeInfo* getTimeInfo(int32_t requestFlags) override;
    bool isInputConnected(int32_t index) override { return index >= 0 && index < kChannels; }
    bool isOutputConnected(int32_t index) override { return index >= 0 && index < kChannels; }
    // ui thread, with a UI attached: the value goes to the host's port. LV2
    // gives a plug-in no way to write its own input ports, so values set on
    // any other thread (the modulators) stay in the instance and its editor.
    void automate(int32_t index, float value) override;
    void beginEdit(int32_t index) override { touch(index, true); }
    void endEdit(int32_t index) override { touch(index, false); }
    void updateDisplay() override {}
    // ui thread. Through the UI's ui:resize feature, when the host gave one.
    bool resizeEditor(int32_t width, int32_t height) override;

private:
    struct Uris {
        LV2_URID atomBlank, atomObject, atomFloat, atomDouble, atomInt, atomLong, atomString,
            atomVector, atomSequence, timePosition, timeFrame, timeSpeed, timeBeatsPerMinute,
            programName, parameters, maxBlockLength, sampleRate;
    };

    explicit Lv2Effect(LV2_URID_Map* map);
    // The transport of one time:Position object.
    void readPosition(const LV2_Atom_Object* position);
    // Ports whose value changed since the last block reach the instance.
    void followPorts();
    // One piece of at most DelayEffect's bus size.
    void processPiece(uint32_t offset, uint32_t frames);
    // Whether the caller is the attached UI's thread.
    bool onUiThread() const;
    void touch(int32_t index, bool grabbed);

    bool mapped_;   // whether the host maps URIDs
    Uris uris_{};
    std::unique_ptr<DelayEffect> core_;
    const float* controls_[kParameterCount] = {};  // the host's control ports
    float lastControl_[kParameterCount] = {};      // their values as last applied
    const float* inputs_[kChannels] = {};
    float* outputs_[kChannels] = {};
    const LV2_Atom_Sequence* control_ = nullptr;   // may stay unconnected
    HostTimeInfo time_;                            // 120 BPM, stopped, until the host says
    std::unique_ptr<float[]> silence_;             // stands in for an unconnected input
    std::unique_ptr<float[]> discard_;             // and an unconnected output
    // The attached UI (written and used on its thread; uiThread_ is read by
    // any thread that sets a parameter).
    LV2UI_Write_Function uiWrite_ = nullptr;
    LV2UI_Controller uiController_ = nullptr;
    const LV2UI_Touch* uiTouch_ = nullptr;
    const LV2UI_Resize* uiResize_ = nullptr;
    std::atomic<std::thread::id> uiThread_{};
};

}  // namespace varitap
