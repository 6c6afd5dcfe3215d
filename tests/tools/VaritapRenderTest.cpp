// Renders through Varitap's own bundle, loaded by varitap-render as a host
// loads it. Skips while the bundle is not built.
#include "RenderTestSupport.h"

#include "host/vst2/Vst2Effect.h"
#include "persistence/Preset.h"
#include "tools/render/PluginInstance.h"
#include "tools/render/PresetFile.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

using namespace rendertest;

namespace {

const std::string kBundle = VARITAP_BUNDLE_DIR;

bool varitapBuilt() { return fileExists(kBundle + "/Contents/" VARITAP_ARCH_DIR "/Varitap.so"); }

class VaritapRenderTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!varitapBuilt()) GTEST_SKIP() << "Varitap bundle not built";
    }
    RunResult run(std::vector<std::string> args) {
        args.insert(args.begin(), {"--plugin", kBundle});
        return runRender(args, dir.path());
    }
    TempDir dir;
    // Varitap saves the user presets file when an instance closes: keep the
    // in-process instances away from the real one.
    ConfigHomeGuard config{dir.path()};
};

}  // namespace

// Displays through the listing; a modulator's "Index" takes a parameter
// number (0..240), every other parameter 0..1.
TEST_F(VaritapRenderTest, ParametersAreListedAndCheckedInVaritapsOwnRanges) {
    RunResult result =
        run({"--list-params", "--set", "#1: Sync=0", "--set", "#1: Delay=0.25", "--set", "Auto #1 Index=21"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("#1: Delay                  317.4        Samples"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("Auto #1 Index              #1: Delay"), std::string::npos) << result.out;
    result = run({"--set", "Auto #1 Index=241", "-o", "x.wav"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("outside 0..240"), std::string::npos) << result.err;
    result = run({"--set", "Auto #1 Speed=2", "-o", "x.wav"});
    EXPECT_NE(result.err.find("outside 0..1"), std::string::npos) << result.err;
}

// A factory preset's render of the demo, kept as a 24-bit FLAC. After an
// intended change of the engine or of the preset, write a new reference with
// VARITAP_UPDATE_REFERENCE=1 and listen to it before committing.
TEST_F(VaritapRenderTest, FactoryPresetRenderMatchesTheStoredReference) {
    const std::string reference = VARITAP_TEST_DATA_DIR "/tools/varitap-reference-ping-pong-filtered.flac";
    const std::vector<std::string> render = {"--rate", "16000", "--tempo", "240", "--tail", "0.5",
                                             "--preset", "Ping-Pong/Ping-Pong Filtered"};
    if (std::getenv("VARITAP_UPDATE_REFERENCE")) {
        std::vector<std::string> args = render;
        args.insert(args.end(), {"-o", reference});
        RunResult result = run(args);
        ASSERT_EQ(result.status, 0) << result.err;
    }
    std::vector<std::string> args = render;
    args.insert(args.end(), {"-o", "now.wav"});
    RunResult result = run(args);
    ASSERT_EQ(result.status, 0) << result.err;
    Audio now = readAudio(dir.file("now.wav"));
    Audio stored = readAudio(reference);
    ASSERT_EQ(stored.channels, 2) << reference;
    ASSERT_EQ(now.channels, stored.channels);
    ASSERT_EQ(now.rate, stored.rate);
    ASSERT_EQ(now.frames(), stored.frames());
    double worst = 0.0, squares = 0.0, energy = 0.0;
    long worstFrame = 0;
    for (size_t i = 0; i < now.samples.size(); ++i) {
        double difference = std::fabs(now.samples[i] - stored.samples[i]);
        if (difference > worst) {
            worst = difference;
            worstFrame = static_cast<long>(i) / now.channels;
        }
        squares += difference * difference;
        energy += static_cast<double>(stored.samples[i]) * stored.samples[i];
    }
    EXPECT_GT(energy, 1.0);  // the reference is not silence
    // 24-bit storage rounds by 6e-8; the rest allows for compilers and flags.
    EXPECT_LT(worst, 1e-3) << "largest difference at frame " << worstFrame;
    EXPECT_LT(std::sqrt(squares / static_cast<double>(now.samples.size())), 1e-5);
}

// A damaged preset (not-a-number, infinities, numbers far outside 0..1, in
// the first layout and the current one) leaves varitap-render's instance with
// exactly the values Varitap's own applyPreset gives an instance.
TEST_F(VaritapRenderTest, PresetsApplyAsVaritapItselfAppliesThem) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const std::pair<const char*, float> stored[] = {
        {"0", 1e30f}, {"1", -1e30f}, {"2", nan},  {"3", inf},   {"4", 0.7f},  {"10", 1e30f},
        {"11", -inf}, {"12", nan},   {"13", 0.6f}, {"20", nan}, {"21", inf},  {"22", -inf},
        {"28", nan},  {"92", nan},   {"107", 5.0f}, {"122", 30.0f}, {"240", nan}, {"23", 0.25f},
    };
    static auto host = [](vst::AEffect*, int32_t opcode, int32_t, vst::VstIntPtr, void*,
                          float) -> vst::VstIntPtr { return opcode == vst::audioMasterVersion ? 2400 : 0; };
    for (const bool firstLayout : {true, false}) {
        SCOPED_TRACE(firstLayout ? "first layout" : "version 1");
        auto preset = varitap::makeRef<varitap::Preset>("Damaged");
        auto add = [&](varitap::PropertyValue* value) {
            preset->addProperty(value);
            value->release();
        };
        if (!firstLayout) add(varitap::PropertyValue::makeLong("Version", 1));
        for (const auto& [key, value] : stored) add(varitap::PropertyValue::makeFloat(key, value));

        std::string error;
        auto plugin = render::PluginInstance::load(kBundle, error);
        ASSERT_NE(plugin, nullptr) << error;
        render::applyPreset(*plugin, *preset);
        varitap::Vst2Effect own(host);
        own.core().applyPreset(preset.get());
        for (int32_t i = 0; i < varitap::kParameterCount; ++i) {
            const float mine = own.core().getParameter(i), theirs = plugin->getParameter(i);
            EXPECT_EQ(std::memcmp(&mine, &theirs, sizeof mine), 0) << i << ": " << mine << " " << theirs;
        }
    }
}
