#include "tools/render/ClapInstance.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace render {

using namespace varitap::clap;

namespace {

int64_t fixedTime(double value) { return std::llround(value * static_cast<double>(kTimeFactor)); }

}  // namespace

std::unique_ptr<ClapInstance> ClapInstance::load(const PluginLocation& location, std::string& error) {
    std::unique_ptr<ClapInstance> instance(new ClapInstance);
    ClapInstance& self = *instance;
    self.location_ = location;
    if (!self.module_.open(location.sharedObject, error)) {
        error = "not a CLAP plug-in (" + error + ")";
        return nullptr;
    }
    const clap_plugin_factory* factory = self.module_.factory();
    if (factory->get_plugin_count(factory) > 0) self.descriptor_ = factory->get_plugin_descriptor(factory, 0);
    if (!self.descriptor_ || !self.descriptor_->id) {
        error = "not a CLAP plug-in (its factory lists none)";
        return nullptr;
    }
    self.plugin_ = factory->create_plugin(factory, &self.host_.record, self.descriptor_->id);
    if (!self.plugin_ || !self.plugin_->init(self.plugin_)) {
        error = "the plug-in refused to start (it could not be created)";
        return nullptr;
    }
    self.params_ = static_cast<const clap_plugin_params*>(self.plugin_->get_extension(self.plugin_, kExtParams));
    if (self.params_) {
        self.infos_.resize(self.params_->count(self.plugin_));
        for (uint32_t i = 0; i < self.infos_.size(); ++i) {
            if (!self.params_->get_info(self.plugin_, i, &self.infos_[i])) {
                error = "the plug-in gives no info for parameter " + std::to_string(i);
                return nullptr;
            }
        }
    }
    const auto* ports =
        static_cast<const clap_plugin_audio_ports*>(self.plugin_->get_extension(self.plugin_, kExtAudioPorts));
    for (bool input : {true, false}) {
        const uint32_t count = ports ? ports->count(self.plugin_, input) : 0;
        for (uint32_t i = 0; i < count; ++i) {
            clap_audio_port_info info{};
            if (ports->get(self.plugin_, i, input, &info)) {
                (input ? self.inputPorts_ : self.outputPorts_).push_back(info.channel_count);
                (input ? self.inputs_ : self.outputs_) += static_cast<int>(info.channel_count);
            }
        }
    }
    return instance;
}

ClapInstance::~ClapInstance() {
    if (!plugin_) return;
    stop();
    plugin_->destroy(plugin_);
}

bool ClapInstance::isVaritap() const { return std::strcmp(descriptor_->id, "brelmo.varitap") == 0; }

std::string ClapInstance::parameterName(int index) const { return infos_[static_cast<size_t>(index)].name; }

std::string ClapInstance::parameterDisplay(int index) const {
    const clap_param_info& info = infos_[static_cast<size_t>(index)];
    double value = 0.0;
    char text[512] = {};
    if (!params_->get_value(plugin_, info.id, &value) ||
        !params_->value_to_text(plugin_, info.id, value, text, sizeof text))
        return {};
    text[sizeof text - 1] = 0;
    return text;
}

std::string ClapInstance::effectName() const { return descriptor_->name ? descriptor_->name : ""; }

void ClapInstance::parameterRange(int index, float& low, float& high) const {
    const clap_param_info& info = infos_[static_cast<size_t>(index)];
    low = static_cast<float>(info.min_value);
    high = static_cast<float>(info.max_value);
}

float ClapInstance::getParameter(int index) const {
    double value = 0.0;
    params_->get_value(plugin_, infos_[static_cast<size_t>(index)].id, &value);
    return static_cast<float>(value);
}

void ClapInstance::setParameter(int index, float value) {
    ClapInputEvents events;
    events.add(infos_[static_cast<size_t>(index)].id, value);
    params_->flush(plugin_, &events.record, &events_.record);
}

bool ClapInstance::activate(double sampleRate, int blockSize) {
    stop();
    active_ = plugin_->activate(plugin_, sampleRate, 1, static_cast<uint32_t>(std::max(1, blockSize)));
    return active_;
}

void ClapInstance::setSampleRate(double sampleRate) {
    if (activate(sampleRate, blockSize_)) stop();
}

void ClapInstance::start(double sampleRate, int blockSize, int, int, double tempo) {
    prepare(sampleRate, blockSize, tempo);
    // The pins in port order, each port its share of them.
    auto makeBuses = [](float** pins, const std::vector<uint32_t>& ports, std::vector<clap_audio_buffer>& buses) {
        buses.clear();
        for (uint32_t channels : ports) {
            buses.push_back({pins, nullptr, channels, 0, 0});
            pins += channels;
        }
    };
    makeBuses(inputs(), inputPorts_, inputBuses_);
    makeBuses(outputs(), outputPorts_, outputBuses_);
    if (activate(sampleRate, blockSize_)) running_ = plugin_->start_processing(plugin_);
}

void ClapInstance::process(int frames) {
    frames = std::clamp(frames, 0, blockSize_);
    clap_event_transport transport{};
    transport.header = {sizeof transport, 0, kCoreEventSpaceId, kEventTransport, 0};
    transport.flags = kTransportHasTempo | kTransportHasBeatsTimeline | kTransportHasSecondsTimeline |
                      kTransportHasTimeSignature | kTransportIsPlaying;
    const Transport& t = transport_;
    const double seconds = t.samplePos / t.sampleRate;
    const double beats = seconds * t.tempo / 60.0;
    transport.song_pos_seconds = fixedTime(seconds);
    transport.song_pos_beats = fixedTime(beats);
    transport.tempo = t.tempo;
    transport.bar_start = fixedTime(std::floor(beats / 4.0) * 4.0);
    transport.bar_number = static_cast<int32_t>(beats / 4.0);
    transport.tsig_num = transport.tsig_denom = 4;

    clap_process call{};
    call.steady_time = static_cast<int64_t>(t.samplePos);
    call.frames_count = static_cast<uint32_t>(frames);
    call.transport = &transport;
    call.audio_inputs = inputBuses_.data();
    call.audio_outputs = outputBuses_.data();
    call.audio_inputs_count = static_cast<uint32_t>(inputBuses_.size());
    call.audio_outputs_count = static_cast<uint32_t>(outputBuses_.size());
    call.in_events = &noEvents_.record;
    call.out_events = &events_.record;
    if (!running_ || plugin_->process(plugin_, &call) == kProcessError) {
        for (auto& buffer : outputBuffers_) std::fill(buffer.begin(), buffer.begin() + frames, 0.0f);
    }
    transport_.samplePos += frames;
    transport_.changed = false;
}

void ClapInstance::stop() {
    if (running_) plugin_->stop_processing(plugin_);
    if (active_) plugin_->deactivate(plugin_);
    running_ = active_ = false;
}

}  // namespace render
