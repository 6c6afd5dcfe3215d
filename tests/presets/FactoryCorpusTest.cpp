// Every factory preset, applied to a fresh instance and fed a test signal,
// must be heard, stay finite and bounded, and sound the same in both of the
// engine's forms.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <vector>

#include "BridgeTest.h"
#include "engine/ParameterLayout.h"
#include "persistence/PresetLibrary.h"

namespace varitap {
namespace {

using test::BridgeTest;

constexpr int kSampleRate = 44100;
constexpr int kSeconds = 3;
// The test signal peaks at 0.5; a preset whose output passes 4.0 (+18 dB
// over the input) has feedback running away.
constexpr float kInputPeak = 0.5f;
constexpr float kCeiling = 4.0f;
// Echo level below which a preset counts as silent: about -66 dB.
constexpr double kAudibleEcho = 5e-4;

// Four short decaying tone bursts in the first second (different on the two
// channels), then silence in which only the echoes remain.
std::vector<float> testSignal(int channel) {
    std::vector<float> signal(kSampleRate * kSeconds, 0.0f);
    const double frequency = channel == 0 ? 440.0 : 660.0;
    for (int burst = 0; burst < 4; ++burst) {
        const int start = burst * kSampleRate / 4;
        for (int i = 0; i < kSampleRate / 50; ++i) {
            const double envelope = std::exp(-i / 200.0);
            signal[start + i] = static_cast<float>(
                kInputPeak * envelope * std::sin(2.0 * M_PI * frequency * i / kSampleRate));
        }
    }
    return signal;
}

using Rendered = std::array<std::vector<float>, 2>;

// Blocks of the sizes given in turn.
Rendered renderBlocks(DelayEffect& effect, const std::vector<float> (&input)[2], const std::vector<int>& blocks) {
    Rendered result;
    const size_t length = input[0].size();
    for (auto& channel : result) channel.assign(length, 0.0f);
    const int largest = *std::max_element(blocks.begin(), blocks.end());
    std::vector<float> in[2] = {std::vector<float>(largest), std::vector<float>(largest)};
    size_t turn = 0;
    for (size_t offset = 0; offset < length;) {
        const int frames = static_cast<int>(std::min<size_t>(blocks[turn++ % blocks.size()], length - offset));
        float* inputs[2];
        float* outputs[2];
        for (int c = 0; c < 2; ++c) {
            // The mix may scale the input arrays in place: hand over copies.
            std::copy_n(input[c].begin() + offset, frames, in[c].begin());
            inputs[c] = in[c].data();
            outputs[c] = result[c].data() + offset;
        }
        effect.processReplacing(inputs, outputs, frames);
        offset += size_t(frames);
    }
    return result;
}

// At least 5 folders and 30 distinctly named presets, each a complete
// version-1 state; applied to a fresh instance each is heard, finite and
// bounded. The engine's waves sound sample for sample as its plain form
// (taps one after another) for "Init" and every preset, over blocks of 1 to
// 4096 frames (each block runs under flush to zero, as the engine sets it).
TEST_F(BridgeTest, EveryFactoryPresetIsCompleteAudibleFiniteBoundedAndTheSameInWavesAndInThePlainForm) {
    auto library = makeRef<PresetLibrary>();
    ASSERT_TRUE(library->loadFile(VARITAP_FACTORY_PRESETS, true));
    ASSERT_GE(library->folderCount(), 5u);
    const std::vector<float> input[2] = {testSignal(0), testSignal(1)};
    const std::vector<int> blocks = {512, 1, 333, 4096, 64, 7, 1024, 4095, 2, 256};
    // Renders in waves and in the plain form and expects the same samples.
    auto render = [&](Preset* preset) {
        auto waves = makeEffect();
        auto plain = makeEffect();
        plain->engine().setTapSchedule(DelayEngine::TapSchedule::kSequential);
        if (preset) {
            waves->applyPreset(preset);
            plain->applyPreset(preset);
            EXPECT_EQ(programName(waves), preset->getName());
        }
        const Rendered a = renderBlocks(*waves, input, blocks);
        const Rendered b = renderBlocks(*plain, input, blocks);
        for (int c = 0; c < 2; ++c)
            EXPECT_EQ(0, std::memcmp(a[c].data(), b[c].data(), a[c].size() * sizeof(float)))
                << "channel " << c;
        return a;
    };
    // What a fresh instance (the "Init" program) makes of the signal: every
    // preset must sound different from it.
    const Rendered init = render(nullptr);
    std::set<std::string> names;
    for (uint32_t f = 0; f < library->folderCount(); ++f) {
        PresetFolder* folder = library->folderAt(f);
        EXPECT_GE(folder->presetCount(), 3u) << folder->getName();
        for (uint32_t p = 0; p < folder->presetCount(); ++p) {
            Preset* preset = folder->presetAt(p);
            SCOPED_TRACE(folder->getName() + " / " + preset->getName());
            EXPECT_TRUE(names.insert(preset->getName()).second) << "duplicate name";
            ASSERT_NE(preset->findProperty("Version"), nullptr);
            EXPECT_EQ(preset->findProperty("Version")->getLong(), 1);
            for (int i = 0; i < kParameterCount; ++i) {
                const PropertyValue* value = preset->findProperty(std::to_string(i));
                ASSERT_NE(value, nullptr) << "lacks " << i;
                // Host parameters are 0..1; only a modulator's "Index" holds a
                // parameter number.
                const bool isIndex = i > kModulatorParameterBase &&
                                     (i - kModulatorParameterBase) % kModulatorParameterCount == kModulatorIndex;
                const double v = value->getFloat();
                EXPECT_TRUE(v >= 0.0 && (isIndex ? v < kParameterCount : v <= 1.0)) << i << " = " << v;
            }

            const Rendered rendered = render(preset);
            // Echoes: what the outputs carry while the input is silent
            // (between the bursts and after them).
            float peak = 0.0f, difference = 0.0f, fromInit = 0.0f;
            double echoEnergy = 0.0;
            size_t echoSamples = 0;
            bool finite = true;
            for (int c = 0; c < 2; ++c) {
                for (size_t i = 0; i < rendered[c].size(); ++i) {
                    const float y = rendered[c][i];
                    finite = finite && std::isfinite(y);
                    peak = std::max(peak, std::fabs(y));
                    difference = std::max(difference, std::fabs(y - input[c][i]));
                    fromInit = std::max(fromInit, std::fabs(y - init[c][i]));
                    if (input[0][i] == 0.0f && input[1][i] == 0.0f) {
                        echoEnergy += static_cast<double>(y) * y;
                        ++echoSamples;
                    }
                }
            }
            const double echoRms = std::sqrt(echoEnergy / static_cast<double>(echoSamples));
            ASSERT_TRUE(finite);
            EXPECT_LT(peak, kCeiling);
            EXPECT_GT(difference, 0.05f);  // not the dry input
            EXPECT_GT(fromInit, 0.05f);    // the preset took effect
            EXPECT_GT(echoRms, kAudibleEcho);
            if (std::getenv("VARITAP_CORPUS_REPORT"))
                std::printf("%-28s peak %.3f  echo rms %.5f\n", preset->getName().c_str(), peak, echoRms);
        }
    }
    EXPECT_GE(names.size(), 30u);
}

}  // namespace
}  // namespace varitap
