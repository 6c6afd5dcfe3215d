// The factory preset library, written as code a sound designer can read and
// change: every preset below lists its taps and modulators in musical terms
// (note values, milliseconds, routing names, filter kinds), and this program
// turns them into the 241 normalised parameter values and writes the bundle's
// varitap.factory.presets.xml with the same writer the plug-in uses.
//
//   varitap_factory_presets <output.xml>
//
// What the parameter values mean (the plug-in's parameter layout):
//   0..9    tap input selector   = truncate(44 v): 1..2 In, 41..44 Intern 1..4
//   10..19  tap output selector  = truncate(24 v): 1..2 Out, 21..24 Intern 1..4
//   20      wet/dry mix: the share of the dry input in the output
//   21+7t   tap t: Delay, Volume, Feedback, Sync, Filter Type, Cutoff, Resonance
//   91+15m  modulator m: Type, Index (a raw parameter number), Speed, Min, Max,
//           Sync, Power, then the eight table steps
// Selectors are written at the middle of their value range so that they
// survive single-precision rounding. Every preset is made for two inputs and
// two outputs: a tap reading an output's wet bus other than Out 2 would be
// moved by the plug-in's routing clamp, so chains go through the internal
// buses, which the clamp never touches.
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "persistence/PresetLibrary.h"

namespace {

using varitap::Preset;
using varitap::PresetFolder;
using varitap::PresetLibrary;
using varitap::PropertyValue;

constexpr int kParameterCount = 241;
constexpr int kTapCount = 10;
constexpr int kModulatorCount = 10;
constexpr double kSampleRate = 44100.0;
constexpr double kLineCapacity = 56000.0;  // samples of a free tap's line

// Where a tap reads.
enum Source { NoInput = 0, In1 = 1, In2 = 2, Out2Bus = 22, Bus1 = 41, Bus2 = 42, Bus3 = 43, Bus4 = 44 };
// Where a tap adds.
enum Destination { Nowhere = 0, Out1 = 1, Out2 = 2, ToBus1 = 21, ToBus2 = 22, ToBus3 = 23, ToBus4 = 24 };
// Rows of the note-value table.
enum Note {
    N1_32 = 4, N1_16T = 6, N1_16 = 7, N1_16D = 8, N1_8T = 9, N1_8 = 10, N1_8D = 11,
    N1_4T = 12, N1_4 = 13, N1_4D = 14, N1_2T = 15, N1_2 = 16, N1_2D = 17, N1_1 = 19,
    N1_1D = 20, N2_1 = 22, N2_1D = 23, N4_1 = 24,
};
enum FilterKind { Off = 0, Notch = 1, LowPass = 2, HighPass = 3, BandPass = 4 };
// A tap's seven parameters, in order.
enum TapParameter { Delay = 0, Volume = 1, Feedback = 2, Sync = 3, FilterType = 4, Cutoff = 5, Resonance = 6 };
constexpr int kWetDry = 20;

constexpr int tapParameter(int tap, TapParameter p) { return 21 + 7 * tap + p; }
// The middle of the note's range of values; the last row ends at 1.0.
double noteValue(Note note) { return note >= 24 ? 1.0 : (note + 0.5) / 24.0; }

struct Tap {
    int in = NoInput;
    int out = Nowhere;
    double delay = 0.0;
    bool sync = false;
    double volume = 0.0;
    double feedback = 0.0;
    int filter = Off;
    double cutoff = 0.0;
    double resonance = 0.0;

    Tap lowPass(double c, double r = 0.2) const { return with(LowPass, c, r); }
    Tap highPass(double c, double r = 0.2) const { return with(HighPass, c, r); }
    Tap bandPass(double c, double r = 0.4) const { return with(BandPass, c, r); }
    Tap notch(double c, double r = 0.3) const { return with(Notch, c, r); }

private:
    Tap with(int kind, double c, double r) const {
        Tap t = *this;
        t.filter = kind;
        t.cutoff = c;
        t.resonance = r;
        return t;
    }
};

// A tap from in to out with its delay as the "Delay" parameter's value.
Tap routed(double delay, bool sync, int in, int out, double volume, double feedback) {
    Tap t;
    t.in = in;
    t.out = out;
    t.delay = delay;
    t.sync = sync;
    t.volume = volume;
    t.feedback = feedback;
    return t;
}

// A tempo-synchronised tap.
Tap note(Note n, int in, int out, double volume, double feedback = 0.0) {
    return routed(noteValue(n), true, in, out, volume, feedback);
}

// A free tap, its delay in milliseconds at 44.1 kHz (the line counts samples).
Tap ms(double milliseconds, int in, int out, double volume, double feedback = 0.0) {
    return routed(milliseconds * kSampleRate / 1000.0 / kLineCapacity, false, in, out, volume,
                  feedback);
}

// A tap that passes a bus on to an output one sample later: the listening end
// of a chain through the internal buses.
Tap send(int in, int out, double volume) { return ms(0.0, in, out, volume); }

struct Modulator {
    int type = 0;        // 0 sine, 1 square, 2 ramp, 3 step table
    int target = 0;      // parameter number
    double speed = 0.0;  // free: a sine cycle lasts 4 x speed seconds; synced: a note row
    double min = 0.0;
    double max = 1.0;
    bool sync = false;
    bool power = true;
    std::array<double, 8> table{};

    // Free running, one whole cycle in the given time (at most 4 s: the
    // speed is a 0..1 parameter like every other but "Index").
    Modulator cycleSeconds(double seconds) const {
        Modulator m = *this;
        m.sync = false;
        m.speed = seconds / 4.0;
        return m;
    }
    // Synchronised: a sine or square cycle lasts two notes, a table step one.
    Modulator every(Note n) const {
        Modulator m = *this;
        m.sync = true;
        m.speed = noteValue(n);
        return m;
    }
};

Modulator sine(int target, double min, double max) {
    Modulator m;
    m.type = 0;
    m.target = target;
    m.min = min;
    m.max = max;
    return m;
}

Modulator square(int target, double min, double max) {
    Modulator m = sine(target, min, max);
    m.type = 1;
    return m;
}

Modulator ramp(int target, double min, double max) {
    Modulator m = sine(target, min, max);
    m.type = 2;
    return m;
}

// Eight steps, one per note; each step is min + table x (max - min).
Modulator steps(int target, Note step, std::array<double, 8> table, double min = 0.0,
                double max = 1.0) {
    Modulator m = sine(target, min, max).every(step);
    m.type = 3;
    m.table = table;
    return m;
}

struct PresetSpec {
    const char* name;
    double dry;  // wet/dry mix
    std::vector<Tap> taps;
    std::vector<Modulator> modulators;
};

struct FolderSpec {
    const char* name;
    std::vector<PresetSpec> presets;
};

std::array<double, kParameterCount> parameterValues(const PresetSpec& spec) {
    std::array<double, kParameterCount> v{};
    v[kWetDry] = spec.dry;
    for (size_t t = 0; t < spec.taps.size() && t < kTapCount; ++t) {
        const Tap& tap = spec.taps[t];
        v[t] = tap.in == NoInput ? 0.0 : (tap.in + 0.5) / 44.0;
        v[10 + t] = tap.out == Nowhere ? 0.0 : (tap.out + 0.5) / 24.0;
        const int base = tapParameter(static_cast<int>(t), Delay);
        v[base + Delay] = tap.delay;
        v[base + Volume] = tap.volume;
        v[base + Feedback] = tap.feedback;
        v[base + Sync] = tap.sync ? 1.0 : 0.0;
        v[base + FilterType] = tap.filter == BandPass ? 1.0 : (tap.filter + 0.5) / 4.0;
        if (tap.filter == Off) v[base + FilterType] = 0.0;
        v[base + Cutoff] = tap.cutoff;
        v[base + Resonance] = tap.resonance;
    }
    for (size_t m = 0; m < spec.modulators.size() && m < kModulatorCount; ++m) {
        const Modulator& mod = spec.modulators[m];
        const int base = 91 + 15 * static_cast<int>(m);
        v[base + 0] = mod.type >= 3 ? 1.0 : (mod.type + 0.5) / 3.0;
        v[base + 1] = mod.target;
        v[base + 2] = mod.speed;
        v[base + 3] = mod.min;
        v[base + 4] = mod.max;
        v[base + 5] = mod.sync ? 1.0 : 0.0;
        v[base + 6] = mod.power ? 1.0 : 0.0;
        for (int s = 0; s < 8; ++s) v[base + 7 + s] = mod.table[s];
    }
    return v;
}

// Steps for the stepped delay times: each entry picks a note row when the
// modulator moves a synchronised tap's "Delay" over the whole 0..1 range.
double row(Note n) { return noteValue(n); }

std::vector<FolderSpec> factoryLibrary() {
    const int tap0Volume = tapParameter(0, Volume);
    const int tap1Volume = tapParameter(1, Volume);
    return {
        {"Rhythmic Echoes",
         {
             {"Quarter Note Echo", 0.6,
              {note(N1_4, In1, Out1, 0.75, 0.45), note(N1_4, In2, Out2, 0.75, 0.45)}, {}},
             {"Dotted Eighth Lead", 0.6,
              {note(N1_8D, In1, Out1, 0.8, 0.5), note(N1_8D, In2, Out2, 0.8, 0.5),
               note(N1_4, In1, Out2, 0.35, 0.2), note(N1_4, In2, Out1, 0.35, 0.2)},
              {}},
             {"Eighth Triplet Bounce", 0.6,
              {note(N1_8T, In1, Out1, 0.7, 0.4), note(N1_8T, In2, Out2, 0.7, 0.4),
               note(N1_4T, In1, Out2, 0.4, 0.3), note(N1_4T, In2, Out1, 0.4, 0.3)},
              {}},
             {"Sixteenth Stutter Stack", 0.65,
              {note(N1_16, In1, Out1, 0.6, 0.3), note(N1_16, In2, Out2, 0.6, 0.3),
               note(N1_16D, In1, Out2, 0.45, 0.25), note(N1_16D, In2, Out1, 0.45, 0.25)},
              {}},
             {"Dotted Quarter Wide", 0.6,
              {note(N1_4D, In1, Out1, 0.7, 0.45), note(N1_4, In2, Out2, 0.7, 0.45)}, {}},
             {"Half Note Long Tail", 0.6,
              {note(N1_2, In1, Out1, 0.7, 0.6).lowPass(0.45), note(N1_2, In2, Out2, 0.7, 0.6).lowPass(0.45)},
              {}},
         }},
        {"Ping-Pong",
         {
             // Left repeats on the quarters; the right side hears the input an
             // eighth late (Intern 1) and repeats on the quarters from there.
             {"Ping-Pong Eighths", 0.6,
              {note(N1_4, In1, Out1, 0.75, 0.55), note(N1_8, In2, ToBus1, 1.0),
               note(N1_4, Bus1, Out2, 0.75, 0.55), send(Bus1, Out2, 0.8)},
              {}},
             {"Ping-Pong Dotted", 0.6,
              {note(N1_4D, In1, Out1, 0.75, 0.5), note(N1_8D, In2, ToBus1, 1.0),
               note(N1_4D, Bus1, Out2, 0.75, 0.5), send(Bus1, Out2, 0.8)},
              {}},
             {"Ping-Pong Triplets", 0.6,
              {note(N1_4T, In1, Out1, 0.75, 0.5), note(N1_8T, In2, ToBus1, 1.0),
               note(N1_4T, Bus1, Out2, 0.75, 0.5), send(Bus1, Out2, 0.8)},
              {}},
             {"Cross-Feed Quarters", 0.6,
              {note(N1_4, In1, Out2, 0.75, 0.45), note(N1_4, In2, Out1, 0.75, 0.45),
               note(N1_2, In1, Out1, 0.4, 0.3), note(N1_2, In2, Out2, 0.4, 0.3)},
              {}},
             {"Haas Wide Slap", 0.65,
              {ms(90, In1, Out1, 0.7, 0.2), ms(90, In2, ToBus2, 1.0), ms(17, Bus2, Out2, 0.7, 0.2)},
              {}},
             {"Ping-Pong Filtered", 0.6,
              {note(N1_4, In1, Out1, 0.75, 0.55).lowPass(0.35), note(N1_8, In2, ToBus1, 1.0),
               note(N1_4, Bus1, Out2, 0.75, 0.55).highPass(0.1), send(Bus1, Out2, 0.7)},
              {}},
         }},
        {"Dub and Filtered",
         {
             // Each link of the chain repeats through a darker filter.
             {"Dub Chain Darkening", 0.6,
              {note(N1_4, In1, ToBus1, 1.0).lowPass(0.7), note(N1_4, Bus1, ToBus2, 0.85).lowPass(0.45),
               note(N1_4, Bus2, ToBus3, 0.85).lowPass(0.25), send(Bus1, Out1, 0.8),
               send(Bus2, Out2, 0.75), send(Bus3, Out1, 0.7), note(N1_4, In2, Out2, 0.6, 0.4).lowPass(0.5)},
              {}},
             {"Dark Tape Echo", 0.6,
              {note(N1_8D, In1, Out1, 0.8, 0.6).lowPass(0.2, 0.1), note(N1_8D, In2, Out2, 0.8, 0.6).lowPass(0.2, 0.1)},
              {}},
             {"Telephone Echo", 0.6,
              {note(N1_4, In1, Out1, 0.9, 0.5).bandPass(0.25, 0.5), note(N1_4D, In2, Out2, 0.9, 0.5).bandPass(0.3, 0.5)},
              {}},
             {"Bright Highpass Repeats", 0.6,
              {note(N1_8, In1, Out1, 0.85, 0.5).highPass(0.15), note(N1_8D, In2, Out2, 0.85, 0.5).highPass(0.15)},
              {}},
             {"Dub Siren Sweep", 0.6,
              {note(N1_4D, In1, Out1, 0.8, 0.65).bandPass(0.4, 0.55), note(N1_4D, In2, Out2, 0.8, 0.65).bandPass(0.4, 0.55)},
              {sine(tapParameter(0, Cutoff), 0.1, 0.7).every(N1_1), sine(tapParameter(1, Cutoff), 0.1, 0.7).every(N1_2)}},
             {"Notched Space Echo", 0.6,
              {note(N1_4, In1, Out1, 0.7, 0.55).notch(0.1), note(N1_2, In2, Out2, 0.7, 0.55).notch(0.15),
               note(N1_4D, In1, Out2, 0.4, 0.4).lowPass(0.3)},
              {}},
         }},
        {"Ambience and Multi-Tap",
         {
             {"Small Room Taps", 0.65,
              {ms(7, In1, Out1, 0.5), ms(11, In2, Out2, 0.5), ms(17, In1, Out2, 0.4),
               ms(23, In2, Out1, 0.4), ms(31, In1, Out1, 0.3).lowPass(0.5),
               ms(37, In2, Out2, 0.3).lowPass(0.5), ms(43, In1, Out2, 0.25, 0.2).lowPass(0.35),
               ms(53, In2, Out1, 0.25, 0.2).lowPass(0.35)},
              {}},
             {"Wide Multi-Tap Hall", 0.6,
              {ms(29, In1, Out1, 0.45, 0.3), ms(41, In2, Out2, 0.45, 0.3), ms(67, In1, Out2, 0.4, 0.3),
               ms(89, In2, Out1, 0.4, 0.3), ms(113, In1, Out1, 0.35, 0.35).lowPass(0.5),
               ms(149, In2, Out2, 0.35, 0.35).lowPass(0.5), ms(191, In1, Out2, 0.3, 0.4).lowPass(0.35),
               ms(241, In2, Out1, 0.3, 0.4).lowPass(0.35), ms(307, In1, Out1, 0.25, 0.4).lowPass(0.25),
               ms(379, In2, Out2, 0.25, 0.4).lowPass(0.25)},
              {}},
             {"Early Reflections", 0.7,
              {ms(3, In1, Out2, 0.5), ms(5, In2, Out1, 0.5), ms(9, In1, Out1, 0.4), ms(13, In2, Out2, 0.4),
               ms(19, In1, Out2, 0.3).highPass(0.05), ms(27, In2, Out1, 0.3).highPass(0.05)},
              {}},
             // Three stages in series, each smearing the last: density grows.
             {"Diffuse Cloud", 0.6,
              {ms(37, In1, ToBus1, 0.7, 0.5), ms(53, In2, ToBus1, 0.7, 0.5), ms(71, Bus1, ToBus2, 0.7, 0.5),
               ms(97, Bus2, ToBus3, 0.7, 0.5).lowPass(0.4), send(Bus1, Out1, 0.5), send(Bus2, Out2, 0.5),
               send(Bus3, Out1, 0.6), ms(13, Bus3, Out2, 0.6)},
              {}},
             {"Slapback Doubler", 0.6,
              {ms(80, In1, Out1, 0.6), ms(110, In2, Out2, 0.6), ms(19, In1, Out2, 0.3), ms(23, In2, Out1, 0.3)},
              {}},
             {"Metallic Comb", 0.65,
              {ms(4, In1, Out1, 0.4, 0.8).lowPass(0.6), ms(6, In2, Out2, 0.4, 0.8).lowPass(0.6)},
              {}},
         }},
        {"Sequenced Taps",
         {
             {"Step Gate Eighths", 0.6,
              {note(N1_8, In1, Out1, 0.8, 0.35), note(N1_8D, In2, Out2, 0.8, 0.35)},
              {steps(tap0Volume, N1_8, {1, 0, 1, 1, 0, 1, 0, 1}),
               steps(tap1Volume, N1_8, {0, 1, 1, 0, 1, 0, 1, 1})}},
             {"Stepped Delay Times", 0.6,
              {note(N1_8, In1, Out1, 0.75, 0.4), note(N1_4, In2, Out2, 0.6, 0.3)},
              {steps(tapParameter(0, Delay), N1_4,
                     {row(N1_8), row(N1_8D), row(N1_16), row(N1_8T), row(N1_4), row(N1_8), row(N1_16D), row(N1_8T)})}},
             {"Sequenced Filter Steps", 0.6,
              {note(N1_8, In1, Out1, 0.85, 0.5).bandPass(0.3, 0.5), note(N1_8, In2, Out2, 0.85, 0.5).lowPass(0.3, 0.4)},
              {steps(tapParameter(0, Cutoff), N1_8, {0.1, 0.5, 0.3, 0.8, 0.2, 0.6, 0.4, 0.9}),
               steps(tapParameter(1, Cutoff), N1_16, {0.8, 0.2, 0.6, 0.1, 0.7, 0.3, 0.5, 0.15})}},
             {"Accent Ping-Pong", 0.6,
              {note(N1_8, In1, Out1, 0.8, 0.4), note(N1_8, In2, Out2, 0.8, 0.4)},
              {steps(tap0Volume, N1_8, {1, 0.2, 0.6, 0.2, 1, 0.2, 0.6, 0.2}),
               steps(tap1Volume, N1_8, {0.2, 1, 0.2, 0.6, 0.2, 1, 0.2, 0.6})}},
             {"Sixteenth Tap Sequencer", 0.6,
              {note(N1_16, In1, Out1, 0.7, 0.2), note(N1_8, In2, Out2, 0.7, 0.2), note(N1_8D, In1, Out2, 0.6, 0.2),
               note(N1_4, In2, Out1, 0.6, 0.2)},
              {steps(tapParameter(0, Volume), N1_16, {1, 0, 0, 1, 0, 0, 1, 0}),
               steps(tapParameter(1, Volume), N1_16, {0, 0, 1, 0, 0, 1, 0, 1}),
               steps(tapParameter(2, Volume), N1_16, {0, 1, 0, 0, 1, 0, 0, 0}),
               steps(tapParameter(3, Volume), N1_16, {0, 0, 0, 0, 0, 0, 1, 1})}},
             {"Square Wave Stutter", 0.6,
              {note(N1_16, In1, Out1, 0.8, 0.45), note(N1_16, In2, Out2, 0.8, 0.45)},
              {square(tap0Volume, 0.0, 0.8).every(N1_8), square(tap1Volume, 0.0, 0.8).every(N1_4)}},
         }},
        {"Filter Sweeps and Motion",
         {
             {"Slow Lowpass Sweep", 0.6,
              {note(N1_4, In1, Out1, 0.8, 0.55).lowPass(0.4, 0.4), note(N1_4D, In2, Out2, 0.8, 0.55).lowPass(0.4, 0.4)},
              {sine(tapParameter(0, Cutoff), 0.05, 0.8).every(N2_1),
               sine(tapParameter(1, Cutoff), 0.05, 0.8).every(N2_1D)}},
             {"Synced Bandpass Wah", 0.6,
              {note(N1_8, In1, Out1, 0.9, 0.5).bandPass(0.3, 0.55), note(N1_8D, In2, Out2, 0.9, 0.5).bandPass(0.3, 0.55)},
              {sine(tapParameter(0, Cutoff), 0.05, 0.6).every(N1_2), sine(tapParameter(1, Cutoff), 0.05, 0.6).every(N1_1)}},
             {"Rising Highpass Ramp", 0.6,
              {note(N1_8D, In1, Out1, 0.8, 0.5).highPass(0.0), note(N1_8D, In2, Out2, 0.8, 0.5).highPass(0.0)},
              {ramp(tapParameter(0, Cutoff), 0.0, 0.5).every(N1_1), ramp(tapParameter(1, Cutoff), 0.0, 0.5).every(N1_1)}},
             {"Feedback Swell", 0.6,
              {note(N1_4, In1, Out1, 0.75, 0.3), note(N1_4D, In2, Out2, 0.75, 0.3)},
              {sine(tapParameter(0, Feedback), 0.15, 0.7).every(N4_1),
               sine(tapParameter(1, Feedback), 0.15, 0.7).every(N2_1D)}},
             {"Breathing Mix", 0.5,
              {note(N1_8D, In1, Out1, 0.8, 0.5), note(N1_4, In2, Out2, 0.8, 0.5)},
              {sine(kWetDry, 0.35, 0.8).every(N1_1)}},
             {"Dual Sweep Stereo", 0.6,
              {note(N1_8, In1, Out1, 0.8, 0.5).lowPass(0.3, 0.5), note(N1_8T, In2, Out2, 0.8, 0.5).highPass(0.3, 0.3),
               note(N1_2, In1, Out2, 0.4, 0.4).bandPass(0.4)},
              {sine(tapParameter(0, Cutoff), 0.05, 0.7).cycleSeconds(4.0),
               sine(tapParameter(1, Cutoff), 0.0, 0.6).cycleSeconds(3.2),
               sine(tapParameter(2, Cutoff), 0.1, 0.8).every(N1_1)}},
         }},
    };
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <output.xml>\n", argv[0]);
        return 2;
    }
    auto library = varitap::makeRef<PresetLibrary>();
    for (const FolderSpec& folderSpec : factoryLibrary()) {
        PresetFolder* folder = library->addFolder(folderSpec.name);
        for (const PresetSpec& spec : folderSpec.presets) {
            auto preset = varitap::makeRef<Preset>(spec.name);
            for (auto* v : {PropertyValue::makeLong("Version", 1), PropertyValue::makeLong("NumInputs", 2),
                            PropertyValue::makeLong("NumOutputs", 2)}) {
                preset->addProperty(v);
                v->release();
            }
            const auto values = parameterValues(spec);
            for (int i = 0; i < kParameterCount; ++i) {
                const bool isIndex = i >= 91 && (i - 91) % 15 == 1;
                if (!isIndex && (values[i] < 0.0 || values[i] > 1.0)) {
                    std::fprintf(stderr, "%s: parameter %d of \"%s\" is %g, outside 0..1\n", argv[0], i,
                                 spec.name, values[i]);
                    return 1;
                }
            }
            for (int i = 0; i < kParameterCount; ++i) {
                PropertyValue* v = PropertyValue::makeFloat(std::to_string(i).c_str(), values[i]);
                preset->addProperty(v);
                v->release();
            }
            folder->addPreset(preset.get());
        }
    }
    if (!library->saveFile(argv[1])) {
        std::fprintf(stderr, "%s: cannot write %s\n", argv[0], argv[1]);
        return 1;
    }
    return 0;
}
