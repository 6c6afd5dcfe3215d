// End-to-end runs of the varitap-render program against the TestDelay
// plug-in (bad input, echo positions, presets, listings, plot and bench) and
// against Varitap's own bundle, loaded as a host loads it (skipped while the
// bundle is not built).
#include "RenderTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <regex>

#include "host/vst2/Vst2Effect.h"
#include "persistence/Preset.h"
#include "tools/render/PluginInstance.h"
#include "tools/render/PresetFile.h"

using namespace rendertest;

namespace {

class RenderToolTest : public ::testing::Test {
protected:
    void SetUp() override {
        Audio input = impulses(2, 44100, 4410, {{1000, 0.5f}});
        ASSERT_TRUE(writeAudio(dir / "in.wav", input));
        std::ofstream(dir / "text.wav") << "RIFF but not really";
    }
    RunResult run(std::vector<std::string> args) {
        args.insert(args.begin(), {"--plugin", plugin});
        return runRender(args, dir.path());
    }
    // One error line that names the thing, non-zero status, and nothing left
    // in the folder but the input.
    void expectRefused(const std::vector<std::string>& args, const std::string& thing,
                       const std::string& reason, int status = 1) {
        RunResult result = run(args);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_EQ(result.errorLines(), 1) << result.err;
        EXPECT_EQ(result.err.rfind("varitap-render: ", 0), 0u) << result.err;
        EXPECT_NE(result.err.find(thing), std::string::npos) << result.err;
        EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
        EXPECT_EQ(entries(dir), inputs) << result.err;
    }
    const std::vector<std::string> inputs = {"in.wav", "text.wav"};
    std::string plugin = TEST_DELAY_BUNDLE;
    TempDir dir;
};

const std::string kBundle = VARITAP_BUNDLE_DIR;

class VaritapRenderTest : public RenderToolTest {
protected:
    VaritapRenderTest() { plugin = kBundle; }
    void SetUp() override {
        if (!fileExists(kBundle + "/Contents/" VARITAP_ARCH_DIR "/Varitap.so")) GTEST_SKIP() << "Varitap bundle not built";
        RenderToolTest::SetUp();
    }
    // Varitap saves the user presets file when an instance closes: keep the
    // in-process instances away from the real one.
    ConfigHomeGuard config{dir.path()};
};

}  // namespace

TEST_F(RenderToolTest, BadInputGetsOneLineAndLeavesNoOutput) {
    const std::vector<std::string> out = {"-o", "out.wav", "--plot", "out.png"};
    auto with = [&](std::vector<std::string> args) {
        args.insert(args.end(), out.begin(), out.end());
        return args;
    };
    expectRefused(with({"missing.wav"}), "missing.wav", "No such file");
    expectRefused(with({"text.wav"}), "text.wav", "not an audio file");
    expectRefused(with({"in.wav", "--preset", "Tests/Nope"}), "\"Tests/Nope\"", "not found");
    expectRefused(with({"in.wav", "--set", "Volume=0.5"}), "\"Volume\"", "no parameter of that name");
    expectRefused(with({"in.wav", "--set", "7=0.5"}), "parameter 7", "no such parameter");
    expectRefused(with({"in.wav", "--set", "Gain=1.5"}), "\"Gain\"", "value 1.5 is outside 0..1");
    expectRefused(with({"in.wav", "--set", "1=-0.1"}), "parameter 1", "outside 0..1");
    // A bad setting after a good one changes nothing and writes nothing.
    expectRefused(with({"in.wav", "--set", "Gain=0.5", "--set", "Gain=2"}), "\"Gain\"", "outside");
    expectRefused({"in.wav", "-o", "nofolder/out.wav"}, "nofolder/out.wav", "cannot be written");
    expectRefused({"in.wav", "-o", "out.xyz"}, "out.xyz", "not an audio format");
    expectRefused({"in.wav", "-o", "out.wav", "--plot", "nofolder/p.png"}, "nofolder/p.png",
                  "cannot be written");
    expectRefused({"in.wav", "--tempo", "fast"}, "--tempo", "not a number", 2);

    // The last --plugin counts.
    const std::pair<std::string, const char*> plugins[] = {{NOT_A_PLUGIN_SO, "not a VST2 plug-in"},
                                                           {dir.path(), "not a VST2 plug-in"},
                                                           {dir / "in.wav", "not a VST2 plug-in"},
                                                           {"/nonexistent/X.vst", "no such file"}};
    for (const auto& [path, reason] : plugins)
        expectRefused({"in.wav", "-o", "out.wav", "--plugin", path}, path + ": ", reason);
}

TEST_F(RenderToolTest, EchoesLandOnTheSampleWithTempoRateAndTail) {
    // Two seconds of tail unless told otherwise; FLAC in 24 bits.
    RunResult result = run({"in.wav", "-o", "out.flac", "--set", "Delay=0.25", "--set", "0=0.75", "--block", "100"});
    ASSERT_EQ(result.status, 0) << result.err;
    Audio out = readAudio(dir / "out.flac");
    EXPECT_EQ(out.format, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    EXPECT_EQ(out.rate, 44100);
    ASSERT_EQ(out.channels, 2);
    EXPECT_EQ(out.frames(), 4410 + 2 * 44100);
    for (int c = 0; c < 2; ++c) {
        EXPECT_EQ(peaks(out, c, 1e-6f), std::vector<long>{1250});
        EXPECT_FLOAT_EQ(out.at(1250, c), 0.375f);
    }
    // The tempo and the file's rate reach the plug-in: one beat at 100 BPM and 22050 Hz is 13230 samples.
    ASSERT_TRUE(writeAudio(dir / "slow.wav", impulses(2, 22050, 20000, {{100, 1.0f}})));
    result = run({"slow.wav", "-o", "slow.out.wav", "--set", "Sync=1", "--tempo", "100",
                            "--tail", "0"});
    ASSERT_EQ(result.status, 0) << result.err;
    out = readAudio(dir / "slow.out.wav");
    EXPECT_EQ(out.format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(out.rate, 22050);
    EXPECT_EQ(peaks(out, 0, 0.5f), std::vector<long>{13330});
    EXPECT_EQ(peaks(out, 1, 0.5f), std::vector<long>{13330});
}

TEST_F(RenderToolTest, PresetsComeFromBothLibrariesAndSettingsFollowThem) {
    RunResult result = run({"--list-presets"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Tests/Half Gain\tfactory\nTests/Old Layout\tfactory\nEchoes/Long/Beat\tfactory\n");

    std::ofstream(dir / "brelmo.varitap.presets.xml")
        << "<Presets version=\"1\"><array name=\"folder\"><string name=\"name\" value=\"Mine\" />"
           "<array name=\"preset\"><string name=\"name\" value=\"Quiet\" /><long name=\"Version\" value=\"1\" />"
           "<float name=\"0\" value=\"0.125\" /><float name=\"1\" value=\"0.0\" /></array></array></Presets>\n";
    result = run({"--list-presets"});
    EXPECT_NE(result.out.find("Mine/Quiet\tuser\n"), std::string::npos) << result.out;
    ::unlink((dir / "brelmo.varitap.presets.xml").c_str());

    struct Case {
        std::vector<std::string> args;
        long echo;
        float height;
    };
    const Case cases[] = {
        {{"--preset", "Tests/Half Gain"}, 1100, 0.25f},
        {{"--preset", "Tests/Half Gain", "--set", "Gain=1"}, 1100, 0.5f},
        {{"--set", "Gain=1", "--preset", "Tests/Half Gain"}, 1100, 0.5f},  // settings after the preset
        // First layout: both values sit among the tap inputs and are converted
        // (0.3 to 2/44 gain, 0.2 to 1/44 delay: 22 samples).
        {{"--preset", "Tests/Old Layout"}, 1022, 0.5f * 2.0f / 44.0f},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"in.wav", "-o", "p.wav", "--tail", "0"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        result = run(args);
        ASSERT_EQ(result.status, 0) << result.err;
        Audio out = readAudio(dir / "p.wav");
        EXPECT_EQ(peaks(out, 0, 1e-6f), std::vector<long>{c.echo}) << c.args[1];
        EXPECT_FLOAT_EQ(out.at(c.echo, 0), c.height) << c.args[1];
    }
}

TEST_F(RenderToolTest, ListsParametersWithTheirDisplays) {
    RunResult result = run({"--list-params", "--set", "Delay=0.25", "--set", "Sync=1"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(std::regex_search(result.out, std::regex("\n +0 +Gain +1\\.000 *\n"))) << result.out;
    EXPECT_TRUE(std::regex_search(result.out, std::regex("\n +1 +Delay +250 +smp\n"))) << result.out;
    EXPECT_TRUE(std::regex_search(result.out, std::regex("\n +2 +Sync +On *\n"))) << result.out;
    EXPECT_EQ(entries(dir), inputs);  // lists write nothing
}

TEST_F(RenderToolTest, DemoRendersWithAPlotAndItsSpeed) {
    RunResult result = run({"--plot", "demo.png", "--set", "Delay=0.5"});
    ASSERT_EQ(result.status, 0) << result.err;
    Audio out = readAudio(dir / "varitap-demo.wav");
    ASSERT_EQ(out.channels, 2);
    EXPECT_GT(out.frames(), 4 * 44100);  // two bars at 120 BPM and the tail
    float peak = 0.0f;
    for (float s : out.samples) peak = std::max(peak, std::fabs(s));
    EXPECT_GT(peak, 0.3f);
    EXPECT_LT(peak, 0.6f);
    EXPECT_EQ(readText(dir / "demo.png").substr(1, 3), "PNG");
    EXPECT_NE(result.out.find("plot:    demo.png"), std::string::npos) << result.out;
    std::smatch speed;
    ASSERT_TRUE(std::regex_search(result.out, speed, std::regex("speed: +([0-9]+)x real time"))) << result.out;
    // How fast is for the benchmarks to say; here only that the speed is reported.
    EXPECT_GT(std::stod(speed[1]), 0.0);
    EXPECT_EQ(result.err, "");  // no progress bar when stderr is not a terminal
}

TEST_F(RenderToolTest, BenchPrintsEveryRunAndTheCostRatio) {
    RunResult result = run({"in.wav", "--bench", TEST_DELAY_MAIN_SO, "--rounds", "3"});
    ASSERT_EQ(result.status, 0) << result.err;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(result.out, match, std::regex("cost ratio A/B: ([0-9.]+)\n"))) << result.out;
    double ratio = std::stod(match[1]);
    EXPECT_GT(ratio, 0.05);
    EXPECT_LT(ratio, 20.0);
    EXPECT_NE(result.out.find("run 3: A "), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("run 4:"), std::string::npos);
    EXPECT_NE(result.out.find("B: TestDelay (" TEST_DELAY_MAIN_SO ")"), std::string::npos) << result.out;
    EXPECT_EQ(entries(dir), inputs);  // a bench writes no audio

    // --bench-set sets plug-in B's parameters by its own names ("Gain" is
    // TestDelay's, not Varitap's), and refuses names B does not have.
    result = run({"in.wav", "--bench", TEST_DELAY_MAIN_SO, "--rounds", "1", "--bench-set", "Gain=0.25"});
    EXPECT_EQ(result.status, 0) << result.err;
    result = run({"in.wav", "--bench", TEST_DELAY_MAIN_SO, "--bench-set", "#1: Delay=0.5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("#1: Delay"), std::string::npos) << result.err;

    result = run({"in.wav", "--bench", NOT_A_PLUGIN_SO});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find(NOT_A_PLUGIN_SO ": not a VST2 plug-in"), std::string::npos) << result.err;
}

TEST_F(RenderToolTest, ProgressBarOnlyOnATerminal) {
    if (!fileExists("/usr/bin/script")) GTEST_SKIP() << "no script(1) to give the program a terminal";
    // script(1) runs the program on a pseudo-terminal; its output is the
    // terminal's, stdout and stderr together.
    std::string command = std::string(RENDER_EXE) + " --plugin " TEST_DELAY_BUNDLE " in.wav -o t.wav";
    std::string shell = "cd " + shellQuote(dir.path()) + " && XDG_CONFIG_HOME=" + shellQuote(dir.path()) +
                        " script -qec " + shellQuote(command) + " /dev/null > " + shellQuote(dir / "tty.txt");
    ASSERT_EQ(std::system(shell.c_str()), 0);
    std::string tty = readText(dir / "tty.txt");
    ::unlink((dir / "tty.txt").c_str());
    EXPECT_NE(tty.find("rendering [#####"), std::string::npos) << tty;
    EXPECT_NE(tty.find("] 100%"), std::string::npos) << tty;
    EXPECT_NE(tty.find("speed:"), std::string::npos) << tty;

    RunResult quiet = run({"in.wav", "-o", "t.wav", "-q"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.out + quiet.err, "");
}

TEST_F(RenderToolTest, AnInterruptedRenderLeavesNothingBehind) {
    // The slow plug-in takes 5 ms a block: about 3 s for the demo.
    std::string command = "cd " + shellQuote(dir.path()) + " && XDG_CONFIG_HOME=" + shellQuote(dir.path()) +
                          " TEST_DELAY_SLOW=1 " RENDER_EXE " --plugin " TEST_DELAY_BUNDLE
                          " -o slow.wav --plot slow.png 2> err.txt & pid=$!; sleep 1; kill -INT $pid; wait $pid";
    int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    std::string err = readText(dir / "err.txt");
    ::unlink((dir / "err.txt").c_str());
    EXPECT_EQ(err, "varitap-render: slow.wav: interrupted; nothing was written\n");
    EXPECT_EQ(entries(dir), inputs);
}

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
    Audio now = readAudio(dir / "now.wav");
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
        outputs.push_back(readAudio(dir / args.back()));
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
