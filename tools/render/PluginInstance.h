// One VST 2 plug-in loaded the way a host loads it: dlopen of the shared
// object, its entry point called with our audioMaster callback, and from then
// on only the AEffect record. Single-threaded: the command-line host calls
// the dispatcher and the process functions from its one thread.
#pragma once

#include "host/vst2/VstInterface.h"

#include <memory>
#include <string>
#include <vector>

namespace render {

// Where a plug-in lives: the shared object itself and, when it sits inside a
// bundle folder (X.vst/Contents/<arch>-linux/X.so), the bundle folder.
struct PluginLocation {
    std::string sharedObject;  // real path of the .so
    std::string bundle;        // real path of the X.vst folder, empty when none
};

// The bundle folder given at build time, or the installed copies when that
// one is gone: /usr/local/lib/vst/Varitap.vst, then ~/.vst/Varitap.vst.
std::string defaultPluginPath();

// Accepts a .so file or a bundle folder. On failure, error names the reason.
bool locatePlugin(const std::string& path, PluginLocation& location, std::string& error);

// What the host tells the plug-in about the transport. The song plays from
// sample 0 at a fixed tempo in 4/4.
struct Transport {
    double sampleRate = 44100.0;
    double tempo = 120.0;
    double samplePos = 0.0;
    bool changed = true;  // set for the first block only
};

class PluginInstance {
public:
    // Loads, calls the entry point and effOpen. Null with error set when the
    // path is not a VST 2 plug-in or the plug-in refuses to start.
    static std::unique_ptr<PluginInstance> load(const std::string& path, std::string& error);
    ~PluginInstance();

    PluginInstance(const PluginInstance&) = delete;
    PluginInstance& operator=(const PluginInstance&) = delete;

    vst::AEffect* effect() const { return effect_; }
    const PluginLocation& location() const { return location_; }
    int numParams() const { return effect_->numParams; }
    int numInputs() const { return effect_->numInputs; }
    int numOutputs() const { return effect_->numOutputs; }
    int uniqueId() const { return effect_->uniqueID; }
    // Varitap announces itself with the code "vrtp".
    bool isVaritap() const { return effect_->uniqueID == vst::fourCharCode('v', 'r', 't', 'p'); }

    // Texts the plug-in writes into host buffers. Plug-ins often write more
    // than the 8 characters the interface asks for, so the buffers are large.
    std::string parameterName(int index) const;
    std::string parameterDisplay(int index) const;
    std::string parameterLabel(int index) const;
    std::string programName() const;
    std::string effectName() const;
    // The first parameter with exactly this name, or -1.
    int findParameter(const std::string& name) const;

    float getParameter(int index) const;
    void setParameter(int index, float value);
    void setProgram(int program);

    // Sets sample rate and block size, tells the plug-in which pins carry
    // audio, switches it on and starts processing with the transport at 0.
    void start(double sampleRate, int blockSize, int connectedInputs, int connectedOutputs,
               double tempo);
    // Processes one block (frames <= the block size given to start) from
    // inputs() into outputs() and advances the transport.
    void process(int frames);
    // Stops processing and switches the plug-in off.
    void stop();

    // One buffer per plug-in pin, blockSize samples each, valid after start.
    float** inputs() { return inputPointers_.data(); }
    float** outputs() { return outputPointers_.data(); }

    const Transport& transport() const { return transport_; }
    // How many audioMasterAutomate calls the plug-in made, and the last one.
    int automateCount() const { return automateCount_; }
    int lastAutomatedIndex() const { return lastAutomatedIndex_; }

    // The name the host gives itself (audioMasterGetVendorString and
    // audioMasterGetProductString).
    static const char* hostName();

private:
    PluginInstance() = default;
    static vst::VstIntPtr hostCallback(vst::AEffect* effect, vst::VstInt32 opcode,
                                       vst::VstInt32 index, vst::VstIntPtr value, void* ptr,
                                       float opt);
    vst::VstIntPtr answer(vst::VstInt32 opcode, vst::VstInt32 index, vst::VstIntPtr value,
                          void* ptr, float opt);
    vst::VstIntPtr dispatch(vst::VstInt32 opcode, vst::VstInt32 index = 0, vst::VstIntPtr value = 0,
                            void* ptr = nullptr, float opt = 0.0f) const;
    std::string text(vst::VstInt32 opcode, int index) const;

    void* library_ = nullptr;
    vst::AEffect* effect_ = nullptr;
    PluginLocation location_;
    Transport transport_;
    vst::VstTimeInfo timeInfo_{};
    int blockSize_ = 512;
    int connectedInputs_ = 2;
    int connectedOutputs_ = 2;
    bool running_ = false;
    int automateCount_ = 0;
    int lastAutomatedIndex_ = -1;
    std::vector<std::vector<float>> inputBuffers_, outputBuffers_;
    std::vector<float*> inputPointers_, outputPointers_;
};

}  // namespace render
