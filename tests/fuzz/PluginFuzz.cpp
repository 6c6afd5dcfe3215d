// libFuzzer target: the whole plug-in as a host drives it. The bundle's
// Varitap.so is loaded with dlopen and entered through VSTPluginMain; each input
// plays a script of host calls on one thread, then effClose. Every block the
// host hands over (texts, records, channel arrays, samples) has exactly the size
// a host gives, so AddressSanitizer catches overruns. No effEditOpen (no display).
//
// Input bytes (a missing byte reads as 0):
//   [0]     host: bits 0-1 version (kVersions), bit 2 vendor "Steinberg", bit 3
//           the vendor request fails; the options the instance reads: bit 4 "Delay
//           Time Resample", bits 5-7 "Automation Smooth Factor" (kSmoothFactors)
//   [1] [2] connected input and output pins (modulo 25)
//   then commands, each a byte (modulo 5) and its arguments:
//   0 dispatch      opcode (modulo 81; 255: a 32-bit opcode follows), index,
//                   value, opt, the pointer's size byte (0: null), content;
//                   effSetSpeakerArrangement takes 4's arguments, effGet... none
//   1 parameter     index, value: setParameter, then getParameter
//   2 block         mode (bit 0 replacing, bit 1 in place), frames (kFrames,
//                   16 the declared block size, 17 65536, else n - 17), fill
//                   (silence, impulse, a constant, noise), the constant
//   3 host answer   field, value: time information or connected pins
//   4 arrangements  input and output (channels modulo 26, 255 null; type):
//                   effSetSpeakerArrangement, then effGetSpeakerArrangement
// Arguments: index() is a byte (0..240, a parameter) or integer(); integer()
// and real() are an edge (0, ±1, limits, NaN, ±inf, tiny, huge) for a byte
// below 16, raw bits from the next four below 32, else small (real(): 0..1).
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../host/FakeHost.h"

namespace {

using namespace vst;
using namespace varitap::test;

// A modulator's "Index" display is the target parameter's name, up to 31
// characters, where every other display keeps to the interface's 8. Hosts
// size display buffers for names too (Ardour, Carla, Qtractor and REAPER pass
// 64 bytes or more), so these displays are asked with 32 bytes at least.
constexpr size_t kIndexDisplayBytes = 32;

constexpr float kRealEdges[] = {0.0f, -0.0f, 1.0f, 0.5f, -1.0f, 2.0f, 1e-45f, 1e-30f, 1e30f, FLT_MAX, -FLT_MAX,
                                HUGE_VALF, -HUGE_VALF, NAN, 44100.0f, 96000.0f};
constexpr int64_t kIntegerEdges[] = {0,  1,  -1,        2,         241,       1024,      44100,     44101, 65536,
                                     20, 21, INT32_MAX, INT32_MIN, INT64_MAX, INT64_MIN, int64_t(1) << 32};
constexpr int32_t kFrames[] = {0, 1, 2, 3, 4, 7, 8, 15, 16, 17, 64, 256, 1024, 4096, 44100, 44101};
constexpr VstIntPtr kVersions[] = {2400, 2300, 2200, 0};
constexpr long kSmoothFactors[] = {10000, 1, 2, 100, 1000000, -1, INT32_MAX, 3};
constexpr size_t kTextSizes[] = {8, 24, 32, 64, 256};

// The least size a host gives for a text the plug-in writes: the interface's
// limits (N characters and a terminator), 32 for parameter names (hosts pass
// at least that; LMMS exactly 32). 1: data the host passes in (a text, a
// chunk of `value` bytes). Other opcodes get a slot for a pointer or a record.
constexpr std::pair<int32_t, size_t> kTexts[] = {
    {effGetParamLabel, 9}, {effGetParamDisplay, 9}, {effGetParamName, 32}, {effGetProgramName, 25}, {effCanDo, 1},
    {effGetProgramNameIndexed, 25}, {effGetEffectName, 33}, {effGetVendorString, 65}, {effGetProductString, 65},
    {effShellGetNextPlugin, 65}, {effGetErrorText, 256}, {effSetProgramName, 1}, {effSetChunk, 1},
    {effString2Parameter, 1}};

size_t leastBytes(int32_t opcode, int32_t index) {
    const bool modulatorIndex = index >= 91 && index < 241 && (index - 91) % 15 == 1;
    if (opcode == effGetParamDisplay && modulatorIndex) return kIndexDisplayBytes;
    const auto* found = std::find_if(std::begin(kTexts), std::end(kTexts), [&](auto& t) { return t.first == opcode; });
    return found == std::end(kTexts) ? 0 : found->second;
}

// A heap block of exactly n elements (also for n = 0: a valid, empty block).
template <typename T>
std::unique_ptr<T[]> block(size_t n) { return std::unique_ptr<T[]>(new T[n]()); }

VstSpeakerProperties* speakersOf(void* arrangement) {
    char* speakers = static_cast<char*>(arrangement) + offsetof(VstSpeakerArrangement, speakers);
    return reinterpret_cast<VstSpeakerProperties*>(speakers);
}

// One input played on one instance: the byte reader and the commands.
struct Session {
    const uint8_t *p, *end;
    FakeHost& host;
    Plugin* plugin = nullptr;
    int32_t blockSize = 1024;        // the host's declared block size
    int32_t framesLeft = 4 * 44100;  // samples this input may still process
    volatile int64_t sink = 0;       // keeps the host's reads

    uint8_t byte() { return p < end ? *p++ : 0; }
    uint32_t word() { uint32_t w = 0; for (int i = 0; i < 4; ++i) w = w << 8 | byte(); return w; }
    int64_t integer() { const uint8_t b = byte(); return b < 16 ? kIntegerEdges[b] : b < 32 ? int(word()) : b - 32; }
    int32_t index() { const uint8_t b = byte(); return b < 241 ? b : static_cast<int32_t>(integer()); }
    float real() {
        const uint8_t b = byte();
        const uint32_t w = b >= 16 && b < 32 ? word() : 0;
        float raw;
        std::memcpy(&raw, &w, sizeof raw);
        return b < 16 ? kRealEdges[b] : b < 32 ? raw : static_cast<float>(b - 32) / 223.0f;
    }

    void run() {
        while (p < end) {
            switch (byte() % 5) {
                case 0: dispatch(); break;
                case 1: parameter(); break;
                case 2: process(); break;
                case 3: answer(); break;
                case 4: arrangements(true); break;
            }
        }
    }

    void dispatch() {
        const uint8_t op = byte();
        const int32_t opcode = op == 255 ? static_cast<int32_t>(word()) : op % 81;
        if (opcode == effClose || opcode == effEditOpen) return;
        if (opcode == effSetSpeakerArrangement || opcode == effGetSpeakerArrangement)
            return arrangements(opcode == effSetSpeakerArrangement);
        const int32_t index = this->index();
        VstIntPtr value = static_cast<VstIntPtr>(integer());
        const float opt = real();
        if (opcode == effSetBlockSize || opcode == effSetBlockSizeAndSampleRate)
            blockSize = static_cast<int32_t>(std::clamp<VstIntPtr>(value, 0, 65536));
        const uint8_t size = byte();
        if (size == 0) return static_cast<void>(plugin->dispatch(opcode, index, value, nullptr, opt));
        const size_t least = leastBytes(opcode, index);
        const size_t bytes = least ? std::max(least, kTextSizes[size % 5])
                             : opcode == effEditGetRect || opcode == effGetChunk ? sizeof(void*) : 256;
        auto buffer = block<char>(bytes);
        if (least == 1) {  // zero-terminated within the block
            const size_t length = std::min<size_t>(byte(), bytes - 1);
            for (size_t i = 0; i < length; ++i) buffer[i] = static_cast<char>(byte());
            if (opcode == effSetChunk) value = static_cast<VstIntPtr>(bytes);
        } else if (least) {
            std::memset(buffer.get(), byte(), bytes);  // hosts do not always clear it
        }
        const VstIntPtr result = plugin->dispatch(opcode, index, value, buffer.get(), opt);
        // What a host reads back: the editor's rectangle, a chunk.
        const char* handed = nullptr;
        std::memcpy(&handed, buffer.get(), sizeof handed);
        if (opcode == effEditGetRect && result && handed) sink += reinterpret_cast<const ERect*>(handed)->right;
        if (opcode == effGetChunk && result > 0 && handed) sink += handed[result - 1];
    }

    void parameter() {
        const int32_t index = this->index();
        plugin->set(index, real());
        sink += plugin->get(index) > 0.5f;
    }

    // One block through processReplacing or process with exactly the channel
    // arrays the record declares; at most a few seconds of samples per input.
    void process() {
        const uint8_t mode = byte(), f = byte();
        const int32_t frames = std::min(f < 16 ? kFrames[f] : f == 16 ? blockSize : f == 17 ? 65536 : f - 17,
                                        framesLeft);
        framesLeft -= frames;
        const uint8_t fill = byte() % 4;
        const float constant = real();
        AEffect* effect = plugin->effect();
        const int32_t numIn = std::max(effect->numInputs, 0), numOut = std::max(effect->numOutputs, 0);
        auto inputs = block<float*>(static_cast<size_t>(numIn));
        auto outputs = block<float*>(static_cast<size_t>(numOut));
        std::vector<std::unique_ptr<float[]>> channels(static_cast<size_t>(numIn + numOut));
        uint32_t noise = fill;
        for (auto& channel : channels) {
            channel = block<float>(static_cast<size_t>(frames));
            for (int32_t i = 0; i < frames; ++i) {
                noise = noise * 1664525u + 1013904223u;
                channel[i] = fill == 0   ? 0.0f
                             : fill == 1 ? (i == 0 ? 1.0f : 0.0f)
                             : fill == 2 ? constant
                                         : static_cast<float>(static_cast<int32_t>(noise)) * 0x1p-31f;
            }
        }
        for (int32_t c = 0; c < numIn; ++c) inputs[c] = channels[size_t(c)].get();
        for (int32_t c = 0; c < numOut; ++c)
            outputs[c] = (mode & 2) && c < numIn ? inputs[c] : channels[size_t(numIn + c)].get();
        (mode & 1 ? effect->processReplacing : effect->process)(effect, inputs.get(), outputs.get(), frames);
    }

    // Times run from the edges through 0..1000 (tempos, positions).
    void answer() {
        VstTimeInfo& t = host.time;
        switch (byte() % 7) {
            case 0: t.tempo = 1000.0 * real(); break;
            case 1: t.samplePos = 1000.0 * real(); break;
            case 2: t.flags = static_cast<int32_t>(word()); break;
            case 3: t.sampleRate = 1000.0 * real(); break;
            case 4: host.giveTime = !host.giveTime; break;
            case 5: host.connectedInputs = static_cast<int>(integer()); break;
            case 6: host.connectedOutputs = static_cast<int>(integer()); break;
        }
    }

    // A record as a host builds one (room for at least eight speakers), or none.
    std::optional<Arrangement> arrangement() {
        const uint8_t channels = byte(), type = byte();
        if (channels == 255) return std::nullopt;
        std::optional<Arrangement> made(std::in_place, type < 4 ? type - 2 : type, channels % 26);
        for (int32_t i = 0; i < channels % 26; ++i) speakersOf(made->get())[i].type = i + 1;
        return made;
    }

    // Sets two records (when set), then reads the plug-in's as a host does:
    // every speaker of the count.
    void arrangements(bool set) {
        if (set) {
            auto input = arrangement();
            auto output = arrangement();
            plugin->dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(input ? input->get() : nullptr),
                 output ? output->get() : nullptr);
        }
        VstSpeakerArrangement* records[2] = {nullptr, nullptr};
        if (!plugin->dispatch(effGetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(&records[0]), &records[1])) return;
        for (VstSpeakerArrangement* record : records)
            for (int32_t i = 0; record && i < record->numChannels; ++i) sink += speakersOf(record)[i].type;
    }
};

// The bundle, loaded once the configuration folder is set and never
// unloaded: the resident instance lives in it until the process ends.
BundleLibrary& library() {
    static auto* const loaded = new BundleLibrary;
    return *loaded;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Every instance reads the options and rewrites (and syncs) the user presets
    // file on close: the tests' private folder, in TMPDIR (fuzz.sh: in memory).
    privateConfig->SetUp();
    std::atexit([] { privateConfig->TearDown(); });
    if (privateConfig->dir.empty() || !library().loaded()) {
        std::fprintf(stderr, "cannot load %s: %s\n", BundleLibrary::path().c_str(), dlerror());
        std::exit(1);
    }
    // One instance stays open for the whole run, like the plug-in on another track:
    // the shared preset library (with the factory file) is loaded once, not per input.
    static FakeHost residentHost;
    static AEffect* const resident = library().entry()(&FakeHost::callback);
    return resident ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FakeHost host;
    Session session{data, data + size, host};
    const uint8_t h = session.byte();
    host.version = kVersions[h & 3];
    host.vendor = h & 8 ? "" : h & 4 ? "Steinberg" : "Fuzz Host";
    host.connectedInputs = session.byte() % 25;
    host.connectedOutputs = session.byte() % 25;
    // The smoothing factor is process-wide and kept when the option is 0:
    // every input sets it, so that no input depends on the one before.
    std::ofstream(privateConfig->dir + "/brelmo.varitap.conf")
        << "[brelmo.varitap]\nDelay Time Resample=" << (h >> 4 & 1)
        << "\nAutomation Smooth Factor=" << kSmoothFactors[h >> 5];
    Plugin plugin(library(), host);  // closed with effClose at the end
    if (!plugin) return 0;
    session.plugin = &plugin;
    session.run();
    return 0;
}
