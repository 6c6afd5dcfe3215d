// A plug-in loaded the way a host loads it, VST 2 or CLAP, behind one
// interface (HostedPlugin); the VST 2 one here (PluginInstance: dlopen of the
// shared object, its entry point called with our audioMaster callback, and
// from then on only the AEffect record), the CLAP one in ClapInstance.h.
// Single-threaded: the command-line host calls the plug-in from its one
// thread.
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

// Accepts a .so or .clap file or a bundle folder (whose Contents/<arch>-linux
// holds X.so or X.clap). On failure, error names the reason.
bool locatePlugin(const std::string& path, PluginLocation& location, std::string& error);

// What the host tells the plug-in about the transport. The song plays from
// sample 0 at a fixed tempo in 4/4.
struct Transport {
    double sampleRate = 44100.0;
    double tempo = 120.0;
    double samplePos = 0.0;
    bool changed = true;  // set for the first block only
};

// What the command-line host asks of a plug-in, whatever its format.
class HostedPlugin {
public:
    HostedPlugin() = default;
    virtual ~HostedPlugin() = default;
    HostedPlugin(const HostedPlugin&) = delete;
    HostedPlugin& operator=(const HostedPlugin&) = delete;

    const PluginLocation& location() const { return location_; }
    virtual int numParams() const = 0;
    virtual int numInputs() const = 0;
    virtual int numOutputs() const = 0;
    virtual bool isVaritap() const = 0;

    virtual std::string parameterName(int index) const = 0;
    virtual std::string parameterDisplay(int index) const = 0;
    virtual std::string parameterLabel(int index) const = 0;
    // The plug-in's name ("" when it tells none).
    virtual std::string effectName() const = 0;
    // The first parameter with exactly this name, or -1.
    int findParameter(const std::string& name) const;
    // The range a parameter's value must lie in.
    virtual void parameterRange(int index, float& low, float& high) const = 0;

    // Values as the plug-in's own parameter calls take them, applied at once.
    virtual float getParameter(int index) const = 0;
    virtual void setParameter(int index, float value) = 0;
    // The name hosts show for the current settings (a preset's).
    virtual void setProgramName(const std::string& name) = 0;
    // Tells the plug-in the rate before anything runs (its displays may
    // depend on it).
    virtual void setSampleRate(double sampleRate) = 0;

    // Sets sample rate and block size, tells the plug-in which pins carry
    // audio, switches it on and starts processing with the transport at 0.
    virtual void start(double sampleRate, int blockSize, int connectedInputs, int connectedOutputs,
                       double tempo) = 0;
    // Processes one block (frames <= the block size given to start) from
    // inputs() into outputs() and advances the transport.
    virtual void process(int frames) = 0;
    // Stops processing and switches the plug-in off.
    virtual void stop() = 0;

    // One buffer per plug-in pin, blockSize samples each, valid after start.
    float** inputs() { return inputPointers_.data(); }
    float** outputs() { return outputPointers_.data(); }

    const Transport& transport() const { return transport_; }

protected:
    // start's common part: the transport at 0 and zeroed buffers for the
    // plug-in's pins.
    void prepare(double sampleRate, int blockSize, double tempo);

    PluginLocation location_;
    Transport transport_;
    int blockSize_ = 512;
    std::vector<std::vector<float>> inputBuffers_, outputBuffers_;
    std::vector<float*> inputPointers_, outputPointers_;
};

// Loads a VST 2 or a CLAP plug-in (a .clap file, or a bundle folder holding
// one). Null with error set when it is neither or refuses to start.
std::unique_ptr<HostedPlugin> loadPlugin(const std::string& path, std::string& error);

class PluginInstance : public HostedPlugin {
public:
    // Loads, calls the entry point and effOpen. Null with error set when the
    // path is not a VST 2 plug-in or the plug-in refuses to start.
    static std::unique_ptr<PluginInstance> load(const std::string& path, std::string& error);
    ~PluginInstance() override;

    vst::AEffect* effect() const { return effect_; }
    int numParams() const override { return effect_->numParams; }
    int numInputs() const override { return effect_->numInputs; }
    int numOutputs() const override { return effect_->numOutputs; }
    int uniqueId() const { return effect_->uniqueID; }
    // Varitap announces itself with the code "vrtp".
    bool isVaritap() const override { return effect_->uniqueID == vst::fourCharCode('v', 'r', 't', 'p'); }

    // Texts the plug-in writes into host buffers. Plug-ins often write more
    // than the 8 characters the interface asks for, so the buffers are large.
    std::string parameterName(int index) const override;
    std::string parameterDisplay(int index) const override;
    std::string parameterLabel(int index) const override;
    std::string programName() const;
    std::string effectName() const override;
    // Every VST 2 parameter is 0..1, except Varitap's modulator "Index"
    // parameters, which carry the number of the parameter they move (0..240).
    void parameterRange(int index, float& low, float& high) const override;

    float getParameter(int index) const override;
    void setParameter(int index, float value) override;
    void setProgram(int program);
    void setProgramName(const std::string& name) override;
    void setSampleRate(double sampleRate) override;

    void start(double sampleRate, int blockSize, int connectedInputs, int connectedOutputs,
               double tempo) override;
    void process(int frames) override;
    void stop() override;

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
    vst::VstTimeInfo timeInfo_{};
    int connectedInputs_ = 2;
    int connectedOutputs_ = 2;
    bool running_ = false;
    int automateCount_ = 0;
    int lastAutomatedIndex_ = -1;
};

}  // namespace render
