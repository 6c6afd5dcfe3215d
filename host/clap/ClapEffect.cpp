#include "host/clap/ClapEffect.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <charconv>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "engine/ParameterText.h"
#include "host/ParameterInfo.h"
#include "host/PluginEditor.h"

namespace varitap {

using namespace clap;

namespace {

// Blocks longer than the engine's buses run in pieces.
constexpr uint32_t kPieceFrames = DelayEngine::kBusSamples;
// The period of the editor's idle work.
constexpr uint32_t kIdleMs = 30;

// The state stream: a tag, the layout's version, the program name and every
// parameter value as the instance holds it (little-endian floats).
constexpr char kStateTag[4] = {'V', 'r', 't', 'p'};
constexpr uint32_t kStateVersion = 1;
struct StateImage {
    char tag[4];
    uint32_t version;
    uint32_t count;
    char name[Program::kNameMax + 1];
    float values[kParameterCount];
};

// The parameter table, built once per module.
const ParameterInfo& infoOf(int32_t index) {
    // Destroyed with the module (hosts unload it).
    static const std::vector<ParameterInfo> table = [] {
        std::vector<ParameterInfo> t(kParameterCount);
        for (int32_t i = 0; i < kParameterCount; ++i) t[i] = parameterInfo(i);
        return t;
    }();
    return table[static_cast<size_t>(index)];
}

bool validId(clap_id id) { return id < static_cast<clap_id>(kParameterCount); }

void writeText(char* out, uint32_t size, const std::string& text) {
    if (!out || size == 0) return;
    const size_t n = text.size() < size - 1 ? text.size() : size - 1;
    std::memcpy(out, text.data(), n);
    out[n] = 0;
}

}  // namespace

// The choice a value selects: the last one at or below it (the engine
// truncates a selector's value to its step).
size_t choiceOf(const ParameterInfo& info, float value) {
    size_t k = 0;
    while (k + 1 < info.choices.size() && info.choices[k + 1].value <= value + 1e-6f) ++k;
    return k;
}

double ClapEffect::toClap(int32_t index, float value) {
    (void)index;
    return value;
}

bool ClapEffect::fromClap(int32_t index, double value, float* out) {
    if (!std::isfinite(value)) return false;
    const ParameterInfo& info = infoOf(index);
    const double low = info.minimum;
    const double high = info.maximum;
    *out = static_cast<float>(value < low ? low : value > high ? high : value);
    return true;
}

ClapEffect::ClapEffect(const clap_host* host) : plugin_{}, host_(host) {
    plugin_.desc = descriptor();
    plugin_.plugin_data = this;
    time_.tempo = 120.0;
    time_.flags = HostTimeInfo::kTempoValid;
}

ClapEffect::~ClapEffect() { stopOwnTimer(); }

bool ClapEffect::init() {
    if (host_->get_extension) {
        hostParams_ = static_cast<const clap_host_params*>(host_->get_extension(host_, kExtParams));
        hostGui_ = static_cast<const clap_host_gui*>(host_->get_extension(host_, kExtGui));
        hostTimer_ = static_cast<const clap_host_timer_support*>(host_->get_extension(host_, kExtTimerSupport));
        if (hostTimer_ && !(hostTimer_->register_timer && hostTimer_->unregister_timer)) hostTimer_ = nullptr;
        hostFd_ = static_cast<const clap_host_posix_fd_support*>(host_->get_extension(host_, kExtPosixFdSupport));
        if (hostFd_ && !(hostFd_->register_fd && hostFd_->unregister_fd)) hostFd_ = nullptr;
    }
    silence_.reset(new float[kPieceFrames]());
    discard_.reset(new float[kPieceFrames]());
    core_ = std::make_unique<DelayEffect>(*this, kChannels, kChannels);
    time_.sampleRate = core_->getSampleRate();
    return true;
}

bool ClapEffect::activate(double sampleRate, uint32_t maxFrames) {
    if (!(sampleRate > 0.0 && std::isfinite(sampleRate))) return false;
    core_->setSampleRate(static_cast<float>(sampleRate));
    time_.sampleRate = core_->getSampleRate();
    const uint32_t block = maxFrames == 0 || maxFrames > kPieceFrames ? kPieceFrames : maxFrames;
    core_->setBlockSize(static_cast<int32_t>(block));
    core_->resume();
    return true;
}

const HostTimeInfo* ClapEffect::getTimeInfo(int32_t requestFlags) {
    (void)requestFlags;
    return &time_;
}

void ClapEffect::readTransport(const clap_event_transport* transport) {
    if (!transport) return;
    if ((transport->flags & kTransportHasTempo) && transport->tempo > 0.0 && std::isfinite(transport->tempo)) {
        time_.tempo = transport->tempo;
    }
    if (transport->flags & kTransportIsPlaying) {
        time_.flags |= HostTimeInfo::kTransportPlaying;
    } else {
        time_.flags &= ~HostTimeInfo::kTransportPlaying;
    }
    if (transport->flags & kTransportIsRecording) {
        time_.flags |= HostTimeInfo::kAutomationWriting;
    } else {
        time_.flags &= ~HostTimeInfo::kAutomationWriting;
    }
    if (transport->flags & kTransportHasSecondsTimeline) {
        const double seconds = static_cast<double>(transport->song_pos_seconds) / static_cast<double>(kTimeFactor);
        if (seconds >= 0.0) time_.samplePos = std::round(seconds * time_.sampleRate);
    }
}

void ClapEffect::applyEvents(const clap_input_events* in) {
    if (!in || !in->size || !in->get) return;
    const uint32_t count = in->size(in);
    for (uint32_t i = 0; i < count; ++i) {
        const clap_event_header* header = in->get(in, i);
        if (!header || header->space_id != kCoreEventSpaceId) continue;
        if (header->type == kEventParamValue && header->size >= sizeof(clap_event_param_value)) {
            const auto* event = reinterpret_cast<const clap_event_param_value*>(header);
            float value = 0.0f;
            if (validId(event->param_id) && fromClap(static_cast<int32_t>(event->param_id), event->value, &value)) {
                core_->setParameter(static_cast<int32_t>(event->param_id), value);
            }
        } else if (header->type == kEventTransport && header->size >= sizeof(clap_event_transport)) {
            readTransport(reinterpret_cast<const clap_event_transport*>(header));
        }
    }
}

bool ClapEffect::pushValue(const clap_output_events* out, int32_t index, float value, uint32_t flags) {
    clap_event_param_value event{};
    event.header.size = sizeof event;
    event.header.space_id = kCoreEventSpaceId;
    event.header.type = kEventParamValue;
    event.header.flags = flags;
    event.param_id = static_cast<clap_id>(index);
    event.note_id = -1;
    event.port_index = -1;
    event.channel = -1;
    event.key = -1;
    event.value = toClap(index, value);
    return out->try_push(out, &event.header);
}

void ClapEffect::queue(uint16_t type, int32_t index, float value) {
    if (index < 0 || index >= kParameterCount) return;
    const uint32_t tail = queueTail_.load(std::memory_order_relaxed);
    if (tail - queueHead_.load(std::memory_order_acquire) >= kQueueSize) return;  // full: dropped
    queue_[tail % kQueueSize] = {type, index, value};
    queueTail_.store(tail + 1, std::memory_order_release);
    if (hostParams_ && hostParams_->request_flush) hostParams_->request_flush(host_);
}

void ClapEffect::sendQueued(const clap_output_events* out) {
    uint32_t head = queueHead_.load(std::memory_order_relaxed);
    const uint32_t tail = queueTail_.load(std::memory_order_acquire);
    for (; head != tail; ++head) {
        const Pending& p = queue_[head % kQueueSize];
        if (!out || !out->try_push) continue;
        if (p.type == kEventParamValue) {
            pushValue(out, p.index, p.value, 0);
        } else {
            clap_event_param_gesture event{};
            event.header.size = sizeof event;
            event.header.space_id = kCoreEventSpaceId;
            event.header.type = p.type;
            event.param_id = static_cast<clap_id>(p.index);
            out->try_push(out, &event.header);
        }
    }
    queueHead_.store(head, std::memory_order_release);
}

void ClapEffect::automate(int32_t index, float value) {
    if (index < 0 || index >= kParameterCount) return;
    // Only the audio thread reads blockOut_, which it alone writes.
    if (std::this_thread::get_id() == audioThread_.load(std::memory_order_relaxed) && blockOut_) {
        // A modulator's movement: shown by the host, not recorded, since the
        // modulator makes it again on playback.
        if (blockOut_->try_push) pushValue(blockOut_, index, value, kEventIsLive | kEventDontRecord);
        return;
    }
    queue(kEventParamValue, index, value);
}

bool ClapEffect::resizeEditor(int32_t width, int32_t height) {
    if (!hostGui_ || !hostGui_->request_resize || width <= 0 || height <= 0) return false;
    return hostGui_->request_resize(host_, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
}

void ClapEffect::watchConnection() {
    PluginEditor* editor = core_->getEditor();
    const int fd = editor ? editor->connectionFd() : -1;
    if (hostFd_ && fd >= 0 && hostFd_->register_fd(host_, fd, kFdRead)) watchedFd_ = fd;
}

void ClapEffect::unwatchConnection() {
    // Before the editor closes the connection: the number may be reused.
    if (watchedFd_ >= 0) hostFd_->unregister_fd(host_, watchedFd_);
    watchedFd_ = -1;
}

void ClapEffect::startOwnTimer() {
    if (ownTimer_.joinable() || !host_->request_callback) return;
    ownTimerStop_ = false;
    ownTimer_ = std::thread([this] {
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(ownTimerMutex_);
                if (ownTimerWake_.wait_for(lock, std::chrono::milliseconds(kIdleMs), [this] { return ownTimerStop_; })) {
                    return;
                }
            }
            // The host calls on_main_thread, where the editor idles.
            host_->request_callback(host_);
        }
    });
}

void ClapEffect::stopOwnTimer() {
    if (!ownTimer_.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(ownTimerMutex_);
        ownTimerStop_ = true;
    }
    ownTimerWake_.notify_all();
    ownTimer_.join();
}

void ClapEffect::updateDisplay() {
    if (hostParams_ && hostParams_->rescan) hostParams_->rescan(host_, kParamRescanText | kParamRescanValues);
}

clap_process_status ClapEffect::process(const clap_process* p) {
    if (!p) return kProcessError;
    audioThread_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    readTransport(p->transport);
    applyEvents(p->in_events);
    sendQueued(p->out_events);
    blockOut_ = p->out_events;

    const clap_audio_buffer* inBuffer = p->audio_inputs_count > 0 ? p->audio_inputs : nullptr;
    const clap_audio_buffer* outBuffer = p->audio_outputs_count > 0 ? p->audio_outputs : nullptr;
    for (uint32_t offset = 0; offset < p->frames_count; offset += kPieceFrames) {
        const uint32_t n = p->frames_count - offset < kPieceFrames ? p->frames_count - offset : kPieceFrames;
        float* in[kChannels];
        float* out[kChannels];
        for (uint32_t c = 0; c < kChannels; ++c) {
            const bool hasIn = inBuffer && inBuffer->data32 && c < inBuffer->channel_count && inBuffer->data32[c];
            const bool hasOut =
                outBuffer && outBuffer->data32 && c < outBuffer->channel_count && outBuffer->data32[c];
            in[c] = hasIn ? inBuffer->data32[c] + offset : silence_.get();
            out[c] = hasOut ? outBuffer->data32[c] + offset : discard_.get();
        }
        core_->processReplacing(in, out, static_cast<int32_t>(n));
        if (time_.flags & HostTimeInfo::kTransportPlaying) time_.samplePos += n;
    }
    if (outBuffer) p->audio_outputs[0].constant_mask = 0;
    blockOut_ = nullptr;
    return kProcessContinue;
}


// Texts: the current value shows exactly what the VST 2 plug-in shows (its
// display, a space and its label); any other value shows its choice, or the
// number, since the display of a delay time or a rate depends on the other
// parameters of its tap.
bool ClapEffect::valueToText(int32_t index, double value, char* text, uint32_t size) {
    if (!text || size == 0) return false;
    const ParameterInfo& info = infoOf(index);
    float coreValue = 0.0f;
    if (!fromClap(index, value, &coreValue)) return false;
    std::string shown;
    if (toClap(index, core_->program().values[index]) == toClap(index, coreValue)) {
        char display[64] = {};
        char label[64] = {};
        core_->getParameterDisplay(index, display);
        core_->getParameterLabel(index, label);
        shown = display;
        while (!shown.empty() && shown.front() == ' ') shown.erase(0, 1);
        if (label[0]) shown += std::string(" ") + label;
    } else if (info.kind == ParameterInfo::kChoice) {
        shown = info.choices[choiceOf(info, coreValue)].label;
    } else {
        // Numbers read the same under any locale the host has set.
        char number[32];
        const auto written = std::to_chars(number, number + sizeof number - 1, coreValue);
        *written.ptr = 0;
        shown = number;
    }
    writeText(text, size, shown);
    return true;
}

bool ClapEffect::textToValue(int32_t index, const char* text, double* value) {
    if (!text || !value) return false;
    char current[256];
    const double now = toClap(index, core_->program().values[index]);
    if (valueToText(index, now, current, sizeof current) && std::strcmp(current, text) == 0) {
        *value = now;
        return true;
    }
    const ParameterInfo& info = infoOf(index);
    if (info.kind == ParameterInfo::kChoice) {
        for (size_t k = 0; k < info.choices.size(); ++k) {
            if (info.choices[k].label == text) {
                *value = info.choices[k].value;
                return true;
            }
        }
        return false;
    }
    double number = 0.0;
    const char* end = text + std::strlen(text);
    const auto read = std::from_chars(text, end, number);
    if (read.ec != std::errc() || read.ptr != end || !std::isfinite(number)) return false;
    if (number < info.minimum || number > info.maximum) return false;
    *value = number;
    return true;
}

namespace {

bool writeAll(const clap_ostream* stream, const void* data, uint64_t size) {
    const auto* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const int64_t n = stream->write(stream, bytes, size);
        if (n <= 0 || static_cast<uint64_t>(n) > size) return false;
        bytes += n;
        size -= static_cast<uint64_t>(n);
    }
    return true;
}

// Reads until size bytes arrived; false at an error or the end of the stream
// before that.
bool readAll(const clap_istream* stream, void* data, uint64_t size) {
    auto* bytes = static_cast<char*>(data);
    while (size > 0) {
        const int64_t n = stream->read(stream, bytes, size);
        if (n <= 0 || static_cast<uint64_t>(n) > size) return false;
        bytes += n;
        size -= static_cast<uint64_t>(n);
    }
    return true;
}

}  // namespace

bool ClapEffect::save(const clap_ostream* stream) {
    if (!stream || !stream->write) return false;
    StateImage image{};
    std::memcpy(image.tag, kStateTag, sizeof image.tag);
    image.version = kStateVersion;
    image.count = kParameterCount;
    core_->getProgramName(image.name, Program::kNameMax);
    for (int32_t i = 0; i < kParameterCount; ++i) image.values[i] = core_->program().values[i];
    return writeAll(stream, &image, sizeof image);
}

bool ClapEffect::load(const clap_istream* stream) {
    if (!stream || !stream->read) return false;
    StateImage image{};
    if (!readAll(stream, &image, sizeof image)) return false;
    char extra;
    if (stream->read(stream, &extra, 1) != 0) return false;  // longer than a state
    if (std::memcmp(image.tag, kStateTag, sizeof image.tag) != 0 || image.version != kStateVersion ||
        image.count != static_cast<uint32_t>(kParameterCount)) {
        return false;
    }
    image.name[Program::kNameMax] = 0;
    core_->setProgramName(image.name);
    for (int32_t i = 0; i < kParameterCount; ++i) {
        const float v = image.values[i];
        if (std::isfinite(v)) core_->setParameter(i, v);
    }
    if (hostParams_ && hostParams_->rescan) hostParams_->rescan(host_, kParamRescanValues | kParamRescanText);
    return true;
}

// The plug-in record's functions and the extension tables. No exception
// leaves them.
struct ClapCalls {
    static ClapEffect* of(const clap_plugin* plugin) { return ClapEffect::of(plugin); }

    static bool init(const clap_plugin* plugin) {
        try {
            return of(plugin)->init();
        } catch (...) {
            return false;
        }
    }
    static void destroy(const clap_plugin* plugin) {
        try {
            guiDestroy(plugin);
            delete of(plugin);
        } catch (...) {
        }
    }
    static bool activate(const clap_plugin* plugin, double rate, uint32_t, uint32_t maxFrames) {
        try {
            return of(plugin)->core_ && of(plugin)->activate(rate, maxFrames);
        } catch (...) {
            return false;
        }
    }
    static void deactivate(const clap_plugin* plugin) {
        try {
            if (of(plugin)->core_) of(plugin)->core_->suspend();
        } catch (...) {
        }
    }
    static bool startProcessing(const clap_plugin*) { return true; }
    static void stopProcessing(const clap_plugin*) {}
    static void reset(const clap_plugin* plugin) {
        try {
            ClapEffect* effect = of(plugin);
            if (!effect->core_) return;
            effect->core_->suspend();
            effect->core_->resume();
        } catch (...) {
        }
    }
    static clap_process_status process(const clap_plugin* plugin, const clap_process* p) {
        try {
            return of(plugin)->core_ ? of(plugin)->process(p) : kProcessError;
        } catch (...) {
            return kProcessError;
        }
    }
    // The callbacks our own idle timer asks for.
    static void onMainThread(const clap_plugin* plugin) {
        if (of(plugin)->ownTimer_.joinable()) idleEditor(plugin);
    }

    // Audio ports: one stereo input, one stereo output.
    static uint32_t portCount(const clap_plugin*, bool) { return 1; }
    static bool portGet(const clap_plugin*, uint32_t index, bool isInput, clap_audio_port_info* info) {
        if (index != 0 || !info) return false;
        *info = clap_audio_port_info{};
        info->id = 0;
        writeText(info->name, sizeof info->name, isInput ? "Input" : "Output");
        info->flags = kAudioPortIsMain;
        info->channel_count = ClapEffect::kChannels;
        info->port_type = kPortStereo;
        info->in_place_pair = 0;
        return true;
    }

    // Parameters.
    static uint32_t paramCount(const clap_plugin*) { return kParameterCount; }
    static bool paramInfo(const clap_plugin* plugin, uint32_t index, clap_param_info* out) {
        if (!validId(index) || !out) return false;
        try {
            const int32_t i = static_cast<int32_t>(index);
            const ParameterInfo& info = infoOf(i);
            *out = clap_param_info{};
            out->id = index;
            out->flags = kParamIsAutomatable;
            // Toggles and "Index" take whole numbers. Choices keep their
            // fractional values (presets hold values between the steps).
            if (info.kind == ParameterInfo::kToggle || info.kind == ParameterInfo::kInteger) {
                out->flags |= kParamIsStepped;
            }
            if (info.kind == ParameterInfo::kToggle) out->flags |= kParamIsEnum;
            char name[kNameTextMax + 1] = {};
            of(plugin)->core_->getParameterName(i, name);
            // A modulator's table steps have no name in VST 2; hosts get the
            // table's ("Auto #1 Step 1").
            writeText(out->name, sizeof out->name, name[0] ? std::string(name) : info.name);
            const size_t colon = info.symbol.find('_');
            writeText(out->module, sizeof out->module, colon == std::string::npos ? "" : info.symbol.substr(0, colon));
            out->min_value = info.minimum;
            out->max_value = info.maximum;
            out->default_value = ClapEffect::toClap(i, info.defaultValue);
            return true;
        } catch (...) {
            return false;
        }
    }
    static bool paramValue(const clap_plugin* plugin, clap_id id, double* value) {
        if (!validId(id) || !value) return false;
        const int32_t i = static_cast<int32_t>(id);
        // The value last set (by the host, the editor, a modulator or a
        // state), not the engine's smoothed one, so that a host reads back
        // what it wrote.
        *value = ClapEffect::toClap(i, of(plugin)->core_->program().values[i]);
        return true;
    }
    static bool valueToText(const clap_plugin* plugin, clap_id id, double value, char* text, uint32_t size) {
        try {
            return validId(id) && of(plugin)->valueToText(static_cast<int32_t>(id), value, text, size);
        } catch (...) {
            return false;
        }
    }
    static bool textToValue(const clap_plugin* plugin, clap_id id, const char* text, double* value) {
        try {
            return validId(id) && of(plugin)->textToValue(static_cast<int32_t>(id), text, value);
        } catch (...) {
            return false;
        }
    }
    static void flush(const clap_plugin* plugin, const clap_input_events* in, const clap_output_events* out) {
        ClapEffect* effect = of(plugin);
        effect->applyEvents(in);
        effect->sendQueued(out);
    }

    static bool stateSave(const clap_plugin* plugin, const clap_ostream* stream) {
        try {
            return of(plugin)->save(stream);
        } catch (...) {
            return false;
        }
    }
    static bool stateLoad(const clap_plugin* plugin, const clap_istream* stream) {
        try {
            return of(plugin)->load(stream);
        } catch (...) {
            return false;
        }
    }

    static uint32_t latency(const clap_plugin*) { return 0; }
    // Echoes may ring for ever (feedback): the host keeps calling process.
    static uint32_t tail(const clap_plugin*) { return UINT32_MAX; }

    // The editor, embedded in the host's X11 window. Its X connection is on
    // the host's descriptor loop and its idle work on the host's timer when
    // the host offers them; otherwise its idle work runs on our own timer
    // (and the frame's redraw timer draws it when no idle comes).
    static PluginEditor* editorOf(const clap_plugin* plugin) {
        ClapEffect* effect = of(plugin);
        return effect->core_ ? effect->core_->getEditor() : nullptr;
    }
    static bool guiSupported(const clap_plugin* plugin, const char* api, bool floating) {
        return editorOf(plugin) && api && std::strcmp(api, kWindowApiX11) == 0 && !floating;
    }
    static bool guiPreferred(const clap_plugin*, const char** api, bool* floating) {
        if (!api || !floating) return false;
        *api = kWindowApiX11;
        *floating = false;
        return true;
    }
    static bool guiCreate(const clap_plugin* plugin, const char* api, bool floating) {
        ClapEffect* effect = of(plugin);
        if (!guiSupported(plugin, api, floating) || effect->guiCreated_) return false;
        effect->guiCreated_ = true;
        if (effect->hostTimer_ && !effect->hostTimer_->register_timer(effect->host_, kIdleMs, &effect->timer_)) {
            effect->timer_ = kInvalidId;
        }
        if (effect->timer_ == kInvalidId) effect->startOwnTimer();
        return true;
    }
    static void guiDestroy(const clap_plugin* plugin) {
        ClapEffect* effect = of(plugin);
        if (!effect->guiCreated_) return;
        effect->unwatchConnection();
        try {
            if (PluginEditor* editor = editorOf(plugin)) editor->close();
        } catch (...) {
        }
        if (effect->timer_ != kInvalidId) effect->hostTimer_->unregister_timer(effect->host_, effect->timer_);
        effect->timer_ = kInvalidId;
        effect->stopOwnTimer();
        effect->guiCreated_ = false;
    }
    static bool guiSetScale(const clap_plugin* plugin, double scale) {
        PluginEditor* editor = editorOf(plugin);
        if (!editor || !(scale > 0.0 && std::isfinite(scale))) return false;
        try {
            editor->setScale(scale);
            return true;
        } catch (...) {
            return false;
        }
    }
    static bool guiGetSize(const clap_plugin* plugin, uint32_t* width, uint32_t* height) {
        PluginEditor* editor = editorOf(plugin);
        if (!editor || !width || !height) return false;
        int32_t w = PluginEditor::kWidth, h = PluginEditor::kHeight;
        editor->getSize(&w, &h);
        *width = static_cast<uint32_t>(w);
        *height = static_cast<uint32_t>(h);
        return true;
    }
    static bool guiCanResize(const clap_plugin*) { return false; }
    static bool guiResizeHints(const clap_plugin*, clap_gui_resize_hints*) { return false; }
    static bool guiAdjustSize(const clap_plugin*, uint32_t*, uint32_t*) { return false; }
    static bool guiSetSize(const clap_plugin* plugin, uint32_t width, uint32_t height) {
        uint32_t w = 0, h = 0;
        return guiGetSize(plugin, &w, &h) && w == width && h == height;
    }
    static bool guiSetParent(const clap_plugin* plugin, const clap_window* window) {
        PluginEditor* editor = editorOf(plugin);
        if (!of(plugin)->guiCreated_ || !editor || !window || !window->api ||
            std::strcmp(window->api, kWindowApiX11) != 0 || window->x11 == 0) {
            return false;
        }
        ClapEffect* effect = of(plugin);
        effect->unwatchConnection();
        try {
            if (editor->isOpen()) editor->close();
            if (!editor->open(reinterpret_cast<void*>(static_cast<uintptr_t>(window->x11)))) return false;
            effect->watchConnection();
            return true;
        } catch (...) {
            return false;
        }
    }
    static bool guiSetTransient(const clap_plugin*, const clap_window*) { return false; }
    static void guiSuggestTitle(const clap_plugin*, const char*) {}
    static bool guiShow(const clap_plugin* plugin) { return of(plugin)->guiCreated_; }
    static bool guiHide(const clap_plugin* plugin) { return of(plugin)->guiCreated_; }
    static void idleEditor(const clap_plugin* plugin) {
        if (!of(plugin)->guiCreated_) return;
        try {
            PluginEditor* editor = editorOf(plugin);
            if (editor && editor->isOpen()) editor->idle();
        } catch (...) {
        }
    }
    static void onTimer(const clap_plugin* plugin, clap_id id) {
        if (id == of(plugin)->timer_) idleEditor(plugin);
    }
    static void onFd(const clap_plugin* plugin, int fd, uint32_t) {
        if (fd >= 0 && fd == of(plugin)->watchedFd_) idleEditor(plugin);
    }

    static const void* extension(const clap_plugin*, const char* id) {
        static const clap_plugin_audio_ports ports = {portCount, portGet};
        static const clap_plugin_params params = {paramCount, paramInfo,   paramValue,
                                                  valueToText, textToValue, flush};
        static const clap_plugin_state state = {stateSave, stateLoad};
        static const clap_plugin_latency latencyTable = {latency};
        static const clap_plugin_tail tailTable = {tail};
        static const clap_plugin_gui gui = {guiSupported,  guiPreferred,    guiCreate,       guiDestroy,
                                            guiSetScale,   guiGetSize,      guiCanResize,    guiResizeHints,
                                            guiAdjustSize, guiSetSize,      guiSetParent,    guiSetTransient,
                                            guiSuggestTitle, guiShow,       guiHide};
        static const clap_plugin_timer_support timer = {onTimer};
        static const clap_plugin_posix_fd_support fds = {onFd};
        if (!id) return nullptr;
        if (std::strcmp(id, kExtGui) == 0) return &gui;
        if (std::strcmp(id, kExtTimerSupport) == 0) return &timer;
        if (std::strcmp(id, kExtPosixFdSupport) == 0) return &fds;
        if (std::strcmp(id, kExtAudioPorts) == 0) return &ports;
        if (std::strcmp(id, kExtParams) == 0) return &params;
        if (std::strcmp(id, kExtState) == 0) return &state;
        if (std::strcmp(id, kExtLatency) == 0) return &latencyTable;
        if (std::strcmp(id, kExtTail) == 0) return &tailTable;
        return nullptr;
    }
};

const clap_plugin_descriptor* ClapEffect::descriptor() {
    static const char* const features[] = {"audio-effect", "delay", "stereo", nullptr};
    static const clap_plugin_descriptor descriptor = {
        kVersion, kId, "Varitap", "Brelmo", "", "", "", VARITAP_VERSION_TEXT,
        "Multi-tap delay with modulators", features,
    };
    return &descriptor;
}

const clap_plugin* ClapEffect::create(const clap_host* host) {
    if (!host) return nullptr;
    ClapEffect* effect = new (std::nothrow) ClapEffect(host);
    if (!effect) return nullptr;
    clap_plugin& p = effect->plugin_;
    p.init = ClapCalls::init;
    p.destroy = ClapCalls::destroy;
    p.activate = ClapCalls::activate;
    p.deactivate = ClapCalls::deactivate;
    p.start_processing = ClapCalls::startProcessing;
    p.stop_processing = ClapCalls::stopProcessing;
    p.reset = ClapCalls::reset;
    p.process = ClapCalls::process;
    p.get_extension = ClapCalls::extension;
    p.on_main_thread = ClapCalls::onMainThread;
    return &p;
}

}  // namespace varitap
