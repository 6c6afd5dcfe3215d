// One CLAP plug-in loaded the way a host loads it: the module through
// clap_entry, the first plug-in of its factory created with our host record
// and driven through its audio ports, params and process calls. Values are
// the plug-in's own (clap_param_info's range) and apply at once through the
// params flush; each block carries the transport, playing from sample 0.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tools/render/ClapHost.h"
#include "tools/render/PluginInstance.h"

namespace render {

class ClapInstance : public HostedPlugin {
public:
    // Null with error set when the module is not a CLAP plug-in with an
    // audio output, or the plug-in refuses to start.
    static std::unique_ptr<ClapInstance> load(const PluginLocation& location, std::string& error);
    ~ClapInstance() override;

    int numParams() const override { return static_cast<int>(infos_.size()); }
    int numInputs() const override { return inputs_; }
    int numOutputs() const override { return outputs_; }
    // Varitap's id is "brelmo.varitap".
    bool isVaritap() const override;

    std::string parameterName(int index) const override;
    // The plug-in's text for the current value; CLAP texts carry their unit.
    std::string parameterDisplay(int index) const override;
    std::string parameterLabel(int) const override { return {}; }
    std::string effectName() const override;
    void parameterRange(int index, float& low, float& high) const override;

    float getParameter(int index) const override;
    void setParameter(int index, float value) override;
    // CLAP has no program name.
    void setProgramName(const std::string&) override {}
    void setSampleRate(double sampleRate) override;

    void start(double sampleRate, int blockSize, int connectedInputs, int connectedOutputs,
               double tempo) override;
    void process(int frames) override;
    void stop() override;

    // Events the plug-in sent the host from its process and flush calls.
    int outputEventCount() const { return events_.count; }

private:
    ClapInstance() = default;
    bool activate(double sampleRate, int blockSize);

    ClapModule module_;  // destroyed after the plug-in
    ClapHost host_;
    const varitap::clap::clap_plugin_descriptor* descriptor_ = nullptr;
    const varitap::clap::clap_plugin* plugin_ = nullptr;
    const varitap::clap::clap_plugin_params* params_ = nullptr;
    std::vector<varitap::clap::clap_param_info> infos_;
    std::vector<uint32_t> inputPorts_, outputPorts_;  // channels per audio port
    // The ports' buffers over the pins' (inputs(), outputs()), made by start.
    std::vector<varitap::clap::clap_audio_buffer> inputBuses_, outputBuses_;
    ClapInputEvents noEvents_;
    ClapOutputEvents events_;
    int inputs_ = 0;
    int outputs_ = 0;
    bool active_ = false;
    bool running_ = false;
};

}  // namespace render
