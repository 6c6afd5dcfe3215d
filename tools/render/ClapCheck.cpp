#include "tools/render/ClapCheck.h"

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <charconv>
#include <clocale>
#include <cstring>
#include <limits>
#include <random>
#include <set>

#include "tools/render/ClapHost.h"

namespace render {

using namespace varitap::clap;

namespace {

// Streams that move at most `chunk` bytes per call.
struct Stream {
    std::vector<uint8_t> bytes;
    size_t position = 0;
    uint64_t chunk = 7;
    clap_ostream out{this, [](const clap_ostream* s, const void* data, uint64_t size) -> int64_t {
                         auto* self = static_cast<Stream*>(s->ctx);
                         const uint64_t n = size < self->chunk ? size : self->chunk;
                         const auto* p = static_cast<const uint8_t*>(data);
                         self->bytes.insert(self->bytes.end(), p, p + n);
                         return static_cast<int64_t>(n);
                     }};
    clap_istream in{this, [](const clap_istream* s, void* data, uint64_t size) -> int64_t {
                        auto* self = static_cast<Stream*>(s->ctx);
                        uint64_t n = self->bytes.size() - self->position;
                        if (n > size) n = size;
                        if (n > self->chunk) n = self->chunk;
                        if (n > 0) std::memcpy(data, self->bytes.data() + self->position, n);
                        self->position += n;
                        return static_cast<int64_t>(n);
                    }};
};

class Checker {
public:
    explicit Checker(std::vector<std::string>& failures) : failures_(failures) {}

    void fail(const std::string& what) { failures_.push_back(what); }
    bool expect(bool ok, const std::string& what) {
        if (!ok) fail(what);
        return ok;
    }

    bool load(const std::string& path) {
        std::string error;
        if (!expect(module_.open(path, error), path + ": " + error)) return false;
        const clap_plugin_entry* entry = module_.entry();
        factory_ = module_.factory();
        // Counted: a second init and one deinit leave the module usable.
        if (!expect(entry->init(path.c_str()), "init refused")) return false;
        entry->deinit();
        expect(entry->get_factory("clap.unknown-factory") == nullptr, "an unknown factory is answered");
        if (!expect(factory_->get_plugin_count(factory_) == 1, "the factory does not list one plug-in")) return false;
        descriptor_ = factory_->get_plugin_descriptor(factory_, 0);
        expect(factory_->get_plugin_descriptor(factory_, 1) == nullptr, "descriptor 1 exists");
        if (!expect(descriptor_ && descriptor_->id && descriptor_->name && descriptor_->vendor &&
                        descriptor_->version && descriptor_->features,
                    "descriptor incomplete"))
            return false;
        std::set<std::string> features;
        for (const char* const* f = descriptor_->features; *f; ++f) features.insert(*f);
        for (const char* wanted : {"audio-effect", "delay", "stereo"})
            expect(features.count(wanted) == 1, std::string("feature missing: ") + wanted);
        expect(factory_->create_plugin(factory_, &host_.record, "no.such.plugin") == nullptr,
               "an unknown id creates a plug-in");
        return true;
    }

    // A created and initialised instance with its extensions, or null.
    const clap_plugin* create() {
        const clap_plugin* p = factory_->create_plugin(factory_, &host_.record, descriptor_->id);
        if (!expect(p != nullptr, "create_plugin failed")) return nullptr;
        if (!expect(p->init(p), "init failed")) {
            p->destroy(p);
            return nullptr;
        }
        params_ = static_cast<const clap_plugin_params*>(p->get_extension(p, kExtParams));
        state_ = static_cast<const clap_plugin_state*>(p->get_extension(p, kExtState));
        expect(params_ && state_, "params or state extension missing");
        expect(p->get_extension(p, "clap.no-such-extension") == nullptr, "an unknown extension is answered");
        return params_ && state_ ? p : nullptr;
    }

    void checkPorts(const clap_plugin* p) {
        const auto* ports = static_cast<const clap_plugin_audio_ports*>(p->get_extension(p, kExtAudioPorts));
        if (!expect(ports != nullptr, "audio-ports extension missing")) return;
        for (bool input : {true, false}) {
            expect(ports->count(p, input) == 1, "not one audio port each way");
            clap_audio_port_info info{};
            expect(ports->get(p, 0, input, &info) && info.channel_count == 2 && info.port_type &&
                       std::strcmp(info.port_type, kPortStereo) == 0 && (info.flags & kAudioPortIsMain),
                   "audio port 0 is not the main stereo port");
            expect(!ports->get(p, 1, input, &info), "audio port 1 exists");
        }
        const auto* latency = static_cast<const clap_plugin_latency*>(p->get_extension(p, kExtLatency));
        expect(latency && latency->get(p) == 0, "latency is not 0");
        const auto* tail = static_cast<const clap_plugin_tail*>(p->get_extension(p, kExtTail));
        expect(tail && tail->get(p) > 0, "no tail: a host sleeping on silence cuts the echoes");
    }

    // The editor extension without a window: the X11 embedded API only, and
    // a size that follows the host's scale.
    void checkGui(const clap_plugin* p) {
        const auto* gui = static_cast<const clap_plugin_gui*>(p->get_extension(p, kExtGui));
        if (!gui) return;  // a plug-in without an editor
        expect(gui->is_api_supported(p, kWindowApiX11, false), "gui: embedded x11 not supported");
        expect(!gui->is_api_supported(p, "wayland", false), "gui: an unknown API is supported");
        if (!expect(gui->create(p, kWindowApiX11, false), "gui: create failed")) return;
        uint32_t w1 = 0, h1 = 0, w2 = 0, h2 = 0;
        expect(gui->set_scale(p, 1.0) && gui->get_size(p, &w1, &h1) && w1 > 0 && h1 > 0, "gui: no size at scale 1");
        expect(gui->set_scale(p, 2.0) && gui->get_size(p, &w2, &h2) && w2 == 2 * w1 && h2 == 2 * h1,
               "gui: the size does not follow the scale");
        expect(!gui->set_scale(p, std::nan("")), "gui: a scale that is not a number accepted");
        gui->set_scale(p, 1.0);
        clap_window none{kWindowApiX11, {0}};
        expect(!gui->set_parent(p, &none), "gui: window 0 accepted as a parent");
        gui->destroy(p);
    }

    // Every parameter's info, and its current, lowest and highest value as
    // text and back.
    void checkParams(const clap_plugin* p) {
        const uint32_t count = params_->count(p);
        expect(count > 0, "no parameters");
        std::set<clap_id> ids;
        infos_.assign(count, clap_param_info{});
        for (uint32_t i = 0; i < count; ++i) {
            clap_param_info& info = infos_[i];
            const std::string at = "parameter " + std::to_string(i);
            if (!expect(params_->get_info(p, i, &info), at + ": no info")) continue;
            expect(ids.insert(info.id).second, at + ": id not unique");
            expect(std::memchr(info.name, 0, sizeof info.name) && info.name[0], at + ": no name");
            expect(info.min_value <= info.default_value && info.default_value <= info.max_value,
                   at + ": default outside the range");
            expect(info.flags & kParamIsAutomatable, at + ": not automatable");
            if (info.flags & kParamIsEnum) expect(info.flags & kParamIsStepped, at + ": enum but not stepped");
            double value = 0.0;
            expect(params_->get_value(p, info.id, &value) && value >= info.min_value && value <= info.max_value,
                   at + ": value outside the range");
            for (double v : {value, info.min_value, info.max_value}) {
                char text[256];
                if (!expect(params_->value_to_text(p, info.id, v, text, sizeof text), at + ": no text")) continue;
                double back = 0.0;
                if (!params_->text_to_value(p, info.id, text, &back)) {
                    expect(v != value, at + ": its current text \"" + text + "\" is not read back");
                    continue;
                }
                char again[256];
                expect(params_->value_to_text(p, info.id, back, again, sizeof again) && std::strcmp(text, again) == 0,
                       at + ": \"" + text + "\" reads back as another value");
            }
            // Where a number is shown, it is written and read with a decimal
            // point whatever the locale, as a user types it.
            const double middle = 0.5 * (info.min_value + info.max_value);
            char shown[256];
            if (!(info.flags & kParamIsStepped) && params_->value_to_text(p, info.id, middle, shown, sizeof shown) &&
                (std::isdigit(static_cast<unsigned char>(shown[0])) || shown[0] == '-')) {
                expect(!std::strchr(shown, ','), at + ": shows a decimal comma in \"" + shown + "\"");
                char typed[64];
                const auto end = std::to_chars(typed, typed + sizeof typed - 1, middle);
                *end.ptr = 0;
                double read = 0.0;
                expect(params_->text_to_value(p, info.id, typed, &read) && read == middle,
                       at + ": the typed number \"" + typed + "\" is not read");
            }
            char tiny[1] = {'x'};
            params_->value_to_text(p, info.id, value, tiny, sizeof tiny);
            expect(tiny[0] == 0, at + ": text overflows a one-byte buffer");
        }
        expect(!params_->get_info(p, count, &infos_.front()) || count == 0, "info past the last parameter");
        double dummy = 0.0;
        expect(!params_->text_to_value(p, ids.empty() ? 0 : *ids.rbegin() + 1000, "1", &dummy),
               "text of an unknown parameter is read");
    }

    // One block of `frames` through p, in place or not; false on error.
    bool run(const clap_plugin* p, uint32_t frames, bool inPlace, ClapInputEvents* events, std::vector<float>* out) {
        std::vector<float> l(frames), r(frames), ol(frames), orr(frames);
        for (uint32_t i = 0; i < frames; ++i) {
            l[i] = static_cast<float>(std::sin(0.01 * (phase_ + i)));
            r[i] = static_cast<float>((phase_ + i) % 100 == 0 ? 1.0 : 0.0);
        }
        phase_ += frames;
        float* inData[2] = {l.data(), r.data()};
        float* outData[2] = {inPlace ? l.data() : ol.data(), inPlace ? r.data() : orr.data()};
        clap_audio_buffer in{inData, nullptr, 2, 0, 0};
        clap_audio_buffer outBuf{outData, nullptr, 2, 0, 0};
        ClapInputEvents none;
        ClapOutputEvents outEvents;
        clap_process process{};
        process.steady_time = -1;
        process.frames_count = frames;
        process.audio_inputs = &in;
        process.audio_outputs = &outBuf;
        process.audio_inputs_count = 1;
        process.audio_outputs_count = 1;
        process.in_events = events ? &events->record : &none.record;
        process.out_events = &outEvents.record;
        const clap_process_status status = p->process(p, &process);
        expect(outEvents.malformed == 0, "malformed output event");
        bool finite = true;
        for (uint32_t i = 0; i < frames; ++i) finite = finite && std::isfinite(outData[0][i]) && std::isfinite(outData[1][i]);
        if (out) {
            out->insert(out->end(), outData[0], outData[0] + frames);
            out->insert(out->end(), outData[1], outData[1] + frames);
        }
        return expect(status != kProcessError, "process returned an error") &&
               expect(finite, "output is not finite");
    }

    bool start(const clap_plugin* p, double rate, uint32_t maxFrames) {
        if (!expect(p->activate(p, rate, 1, maxFrames), "activate refused at " + std::to_string(rate) + " Hz"))
            return false;
        return expect(p->start_processing(p), "start_processing refused");
    }
    void stop(const clap_plugin* p) {
        p->stop_processing(p);
        p->deactivate(p);
    }

    // Hostile values between blocks, in place and out of place.
    void checkHostileValues(const clap_plugin* p) {
        if (!start(p, 44100.0, 512)) return;
        std::mt19937 random(5);
        const double specials[] = {std::nan(""), std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity(), -1e30, 1e30, -1.0, 2.0, 241.0};
        for (int round = 0; round < 60; ++round) {
            ClapInputEvents events;
            for (int k = 0; k < 12; ++k) {
                const clap_param_info& info = infos_[random() % infos_.size()];
                std::uniform_real_distribution<double> inRange(info.min_value, info.max_value);
                events.add(info.id, k % 3 == 0 ? specials[random() % 8] : inRange(random));
            }
            if (!run(p, 1 + random() % 512, round % 2 == 0, &events, nullptr)) break;
        }
        // A parameter id the plug-in does not have.
        ClapInputEvents unknown;
        unknown.add(0xFFFFFF00u, 0.5);
        run(p, 64, false, &unknown, nullptr);
        stop(p);
    }

    // The state of `from`, saved in short writes, into a fresh instance in
    // short reads: the same values and the same output.
    void checkState(const clap_plugin* from) {
        // A value set through flush (no processing) reaches the state.
        ClapInputEvents edit;
        const clap_param_info& last = infos_.back();
        edit.add(last.id, last.min_value + (last.max_value - last.min_value) * 0.25);
        ClapOutputEvents ignored;
        params_->flush(from, &edit.record, &ignored.record);
        Stream saved;
        if (!expect(state_->save(from, &saved.out), "state save failed")) return;

        const clap_plugin_params* params = params_;
        const clap_plugin_state* state = state_;
        const clap_plugin* to = create();
        if (!to) return;
        const int rescans = host_.rescans;
        saved.chunk = 3;
        if (expect(state->load(to, &saved.in), "state load failed")) {
            expect(host_.rescans > rescans, "no rescan after a state load");
            for (const clap_param_info& info : infos_) {
                double a = 0.0, b = 0.0;
                params->get_value(from, info.id, &a);
                params->get_value(to, info.id, &b);
                expect(a == b || (std::isnan(a) && std::isnan(b)),
                       "parameter " + std::to_string(info.id) + " differs after a state load");
            }
            std::vector<float> outA, outB;
            for (const clap_plugin* p : {from, to}) {
                if (!start(p, 48000.0, 1024)) break;
                phase_ = 0;
                for (int block = 0; block < 40; ++block) run(p, 1024, false, nullptr, p == from ? &outA : &outB);
                stop(p);
            }
            expect(outA == outB, "a loaded state sounds different");
        }

        // Garbage, a cut state and a state with bytes after it are refused.
        std::mt19937 random(11);
        Stream garbage;
        garbage.bytes.resize(5000);
        for (uint8_t& b : garbage.bytes) b = static_cast<uint8_t>(random());
        expect(!state->load(to, &garbage.in), "garbage state accepted");
        Stream cut;
        cut.bytes.assign(saved.bytes.begin(), saved.bytes.begin() + static_cast<long>(saved.bytes.size() / 2));
        expect(!state->load(to, &cut.in), "a cut state accepted");
        Stream longer;
        longer.bytes = saved.bytes;
        longer.bytes.push_back(0);
        expect(!state->load(to, &longer.in), "a state with extra bytes accepted");
        Stream empty;
        expect(!state->load(to, &empty.in), "an empty state accepted");
        to->destroy(to);
    }

    // Activation over the range of rates and block sizes hosts use.
    void checkRates(const clap_plugin* p) {
        for (double rate : {8000.0, 11025.0, 22050.0, 44100.0, 48000.0, 96000.0, 192000.0, 384000.0}) {
            for (uint32_t block : {1u, 17u, 512u, 4096u}) {
                if (!start(p, rate, block)) return;
                for (int k = 0; k < 3; ++k)
                    if (!run(p, block, k == 1, nullptr, nullptr)) return;
                stop(p);
            }
        }
        // A rate that is not a positive number is refused, and the
        // instance stays usable.
        for (double rate : {0.0, -44100.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
            if (!expect(!p->activate(p, rate, 1, 512), "activate accepted " + std::to_string(rate) + " Hz"))
                p->deactivate(p);
        }
        // Blocks longer than the plug-in's buffers are split by it.
        if (start(p, 44100.0, 100000)) {
            run(p, 100000, false, nullptr, nullptr);
            stop(p);
        }
    }

private:
    std::vector<std::string>& failures_;
    ClapModule module_;  // destroyed after every instance
    ClapHost host_;
    const clap_plugin_factory* factory_ = nullptr;
    const clap_plugin_descriptor* descriptor_ = nullptr;
    const clap_plugin_params* params_ = nullptr;
    const clap_plugin_state* state_ = nullptr;
    std::vector<clap_param_info> infos_;
    uint64_t phase_ = 0;
};

}  // namespace

std::vector<std::string> checkClapPlugin(const std::string& path) {
    // As a host does: the user's locale for the whole process while the
    // plug-in runs (a German one writes decimal commas), the caller's after.
    const std::string callersLocale = std::setlocale(LC_ALL, nullptr);
    std::setlocale(LC_ALL, "");
    std::vector<std::string> failures;
    {
        Checker checker(failures);
        if (checker.load(path)) {
            if (const clap_plugin* p = checker.create()) {
                checker.checkPorts(p);
                checker.checkGui(p);
                checker.checkParams(p);
                checker.checkHostileValues(p);
                checker.checkState(p);
                checker.checkRates(p);
                p->destroy(p);
            }
        }
    }
    std::setlocale(LC_ALL, callersLocale.c_str());
    return failures;
}

}  // namespace render
