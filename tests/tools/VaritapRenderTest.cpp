// Renders through Varitap's own bundle, loaded by varitap-render as a host
// loads it. Skips while the bundle is not built.
#include "RenderTestSupport.h"

#include "host/vst2/Vst2Effect.h"
#include "persistence/Preset.h"
#include "tools/render/PluginInstance.h"
#include "tools/render/PresetFile.h"
#include "tools/render/Renderer.h"
#include "tools/render/DemoSignal.h"

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
    // Frames where the channel rises above the threshold, one per echo: the
    // first frame of each run of loud frames.
    static std::vector<long> onsets(const Audio& audio, int channel, float threshold) {
        std::vector<long> found;
        long last = -1000;
        for (long f : peaks(audio, channel, threshold)) {
            if (f - last > 100) found.push_back(f);
            last = f;
        }
        return found;
    }
    TempDir dir;
    // Varitap saves the user presets file when an instance closes: keep the
    // in-process instances away from the real one.
    ConfigHomeGuard config{dir.path()};
};

}  // namespace

TEST_F(VaritapRenderTest, InitProgramEchoesFollowTheHostTempo) {
    // Left impulse at 1000, right at 3000: "Init" runs tap 1 from In 1 to
    // Out 1 at "1/4" and tap 2 from In 2 to Out 2 at "1/8D", with feedback.
    Audio input = impulses(2, 44100, 4410, {{1000, 1.0f}}, 0);
    input.samples[3000 * 2 + 1] = 1.0f;
    ASSERT_TRUE(writeAudio(dir.file("in.wav"), input));

    for (double tempo : {120.0, 100.0}) {
        RunResult result = run({"in.wav", "-o", "out.wav", "--tempo", std::to_string(tempo), "--tail", "2.4"});
        ASSERT_EQ(result.status, 0) << result.err;
        Audio out = readAudio(dir.file("out.wav"));
        ASSERT_EQ(out.channels, 2);
        ASSERT_EQ(out.frames(), 4410 + 105840);
        const long beat = static_cast<long>(60.0 / tempo * 44100.0);  // samples per beat
        const long dotted = static_cast<long>(static_cast<float>(60.0 / tempo * 44100.0) * 0.75f);
        std::vector<long> left = {1000}, right = {3000};
        for (long t = 1000 + beat; t < out.frames(); t += beat) left.push_back(t);
        for (long t = 3000 + dotted; t < out.frames(); t += dotted) right.push_back(t);
        EXPECT_EQ(onsets(out, 0, 0.02f), left) << tempo;
        EXPECT_EQ(onsets(out, 1, 0.02f), right) << tempo;
        // Dry share of the "Wet/Dry Mix Volume", then each repeat weaker.
        EXPECT_NEAR(out.at(1000, 0), 0.563636f, 1e-4);
        EXPECT_LT(std::fabs(out.at(left[2], 0)), std::fabs(out.at(left[1], 0)) + 1e-6f);
    }
}

TEST_F(VaritapRenderTest, FreeTapDelaysByItsShareOf56000Samples) {
    ASSERT_TRUE(writeAudio(dir.file("in.wav"), impulses(1, 48000, 48000, {{1000, 1.0f}})));
    RunResult result = run({"in.wav", "-o", "out.wav", "--tail", "0", "--set", "#1: Sync=0", "--set",
                            "#1: Delay=0.25", "--set", "#1: Feedback=0", "--set", "#2: Volume=0", "--set",
                            "Wet/Dry Mix Volume=0", "--block", "333"});
    ASSERT_EQ(result.status, 0) << result.err;
    Audio out = readAudio(dir.file("out.wav"));
    ASSERT_EQ(out.channels, 2);  // mono in, stereo out
    EXPECT_EQ(peaks(out, 0, 1e-4f), std::vector<long>{15000});
    EXPECT_NEAR(out.at(15000, 0), 1.0f, 1e-5);
    EXPECT_EQ(peaks(out, 1, 1e-4f), std::vector<long>{});  // tap 2 silenced

    result = run({"--list-params", "--set", "#1: Sync=0", "--set", "#1: Delay=0.25"});
    EXPECT_NE(result.out.find("#1: Delay                  317.4        Samples"), std::string::npos) << result.out;
}

TEST_F(VaritapRenderTest, ModulatorIndexTakesAParameterNumber) {
    RunResult result = run({"--list-params", "--set", "Auto #1 Index=21"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("Auto #1 Index              #1: Delay"), std::string::npos) << result.out;
    result = run({"--set", "Auto #1 Index=241", "-o", "x.wav"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("outside 0..240"), std::string::npos) << result.err;
    result = run({"--set", "Auto #1 Speed=2", "-o", "x.wav"});
    EXPECT_NE(result.err.find("outside 0..1"), std::string::npos) << result.err;
}

TEST_F(VaritapRenderTest, EveryFactoryPresetRendersTheDemoCleanly) {
    auto library = varitap::makeRef<varitap::PresetLibrary>();
    ASSERT_TRUE(library->loadFile(render::factoryPresetsPath(kBundle), true));
    const std::vector<render::PresetEntry> presets = render::listPresets(*library);
    ASSERT_FALSE(presets.empty());
    std::string error;
    auto plugin = render::PluginInstance::load(kBundle, error);
    ASSERT_NE(plugin, nullptr) << error;
    ASSERT_TRUE(plugin->isVaritap());
    const std::vector<float> demo = render::makeDemoSignal(44100.0, 120.0);
    for (const render::PresetEntry& preset : presets) {
        render::applyPreset(*plugin, *preset.preset);
        render::MemorySource source(demo, 2, 44100.0);
        render::RenderSettings settings;
        settings.tailSeconds = 1.0;
        float peak = 0.0f;
        bool finite = true;
        render::BlockSink sink = [&](const float*, const float* out, int frames) {
            for (int i = 0; i < 2 * frames; ++i) {
                finite = finite && std::isfinite(out[i]);
                peak = std::max(peak, std::fabs(out[i]));
            }
            return true;
        };
        render::RenderResult result;
        ASSERT_TRUE(render::renderSource(*plugin, source, settings, 2, sink, result, error)) << error;
        EXPECT_TRUE(finite) << preset.fullName;
        EXPECT_GT(peak, 0.01f) << preset.fullName;
        EXPECT_LT(peak, 8.0f) << preset.fullName;
    }
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

TEST_F(VaritapRenderTest, UserPresetsApplyWithVaritapsConversionAndRoutingClamp) {
    RunResult result = run({"--list-presets"});
    ASSERT_EQ(result.status, 0) << result.err;
    ASSERT_FALSE(result.out.empty());
    EXPECT_NE(result.out.find("\tfactory\n"), std::string::npos);
    EXPECT_EQ(result.out.find("\tuser\n"), std::string::npos);

    // Version 1: tap 1 reads In 3 (selector 3) and tap 2 writes Out 5: with two
    // pins each, Varitap moves them to In 2 and Out 2. Tap 3 reads Out 1
    // (21), which Varitap's clamp compares with the output count and moves to
    // Out 2 (22). Version 0 ("Old"): 0.7 for tap 1's input is an old internal
    // bus, Intern 1 (41).
    std::ofstream(dir.file("brelmo.varitap.presets.xml"))
        << "<Presets version=\"1\">\n<array name=\"folder\">\n<string name=\"name\" value=\"Mine\" />\n"
           "<array name=\"preset\">\n<string name=\"name\" value=\"Routed\" />\n"
           "<long name=\"Version\" value=\"1\" />\n<float name=\"0\" value=\"0.07\" />\n"
           "<float name=\"11\" value=\"0.21\" />\n<float name=\"2\" value=\"0.48\" />\n"
           "<float name=\"20\" value=\"0.25\" />\n</array>\n"
           "<array name=\"preset\">\n<string name=\"name\" value=\"Old\" />\n"
           "<float name=\"0\" value=\"0.7\" />\n</array>\n</array>\n</Presets>\n";
    result = run({"--list-presets"});
    EXPECT_NE(result.out.find("Mine/Routed\tuser\nMine/Old\tuser\n"), std::string::npos) << result.out;

    result = run({"--list-params", "--preset", "Mine/Routed"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("    0  #1 Input Channel                 2"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("   11  #2 Output Channel                2"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("    2  #3 Input Channel                22"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("   20  Wet/Dry Mix Volume         0.250000"), std::string::npos) << result.out;

    result = run({"--list-params", "--preset", "Mine/Old"});
    EXPECT_NE(result.out.find("    0  #1 Input Channel                41"), std::string::npos) << result.out;
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

// The CLAP module, named by its file or by its bundle folder, renders the
// demo through a synced modulator's preset and a setting exactly as the
// VST 2 bundle does, and --bench times it against the VST 2 one.
TEST_F(VaritapRenderTest, TheClapPlugInRendersWhatTheVst2OneRenders) {
    const std::string clapBundle = VARITAP_CLAP_BUNDLE_DIR;
    const std::vector<std::string> render = {"--tempo", "100", "--tail", "1", "--block", "300", "--preset",
                                             "Filter Sweeps and Motion/Synced Bandpass Wah", "--set",
                                             "#1: Feedback=0.7", "-o"};
    std::vector<Audio> outputs;
    for (const std::string& plugin : {kBundle, clapBundle + "/Contents/" VARITAP_ARCH_DIR "/Varitap.clap", clapBundle}) {
        std::vector<std::string> args = {"--plugin", plugin};
        args.insert(args.end(), render.begin(), render.end());
        args.push_back("out" + std::to_string(outputs.size()) + ".wav");
        RunResult result = runRender(args, dir.path());
        ASSERT_EQ(result.status, 0) << plugin << ": " << result.err;
        EXPECT_NE(result.out.find("plug-in: Varitap ("), std::string::npos) << result.out;
        outputs.push_back(readAudio(dir.file(args.back())));
    }
    ASSERT_GT(outputs[0].frames(), 44100);
    EXPECT_TRUE(outputs[0].samples == outputs[1].samples);
    EXPECT_TRUE(outputs[0].samples == outputs[2].samples);

    RunResult bench = run({"--bench", clapBundle, "--rounds", "1", "--tail", "0", "--preset",
                           "Filter Sweeps and Motion/Synced Bandpass Wah"});
    ASSERT_EQ(bench.status, 0) << bench.err;
    EXPECT_NE(bench.out.find("B: Varitap (" + clapBundle + "/Contents/"), std::string::npos) << bench.out;
    EXPECT_NE(bench.out.find("cost ratio A/B: "), std::string::npos) << bench.out;
}
