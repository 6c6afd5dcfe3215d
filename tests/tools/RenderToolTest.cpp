// End-to-end runs of the varitap-render program: bad input, echo positions,
// presets, listings, plot, bench, progress and interruption, and the CLAP
// module beside the VST 2 one.
#include "RenderTestSupport.h"
#include "../presets/PresetTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <regex>

#include "host/vst2/Vst2Effect.h"
#include "persistence/Preset.h"
#include "tools/render/PresetFile.h"

using namespace rendertest;
using varitap::test::addValues;

namespace {

class RenderToolTest : public RenderTest {
protected:
    void SetUp() override {
        RenderTest::SetUp();
        std::string error;
        ASSERT_TRUE(render::writeAudioFile(dir / "in.wav", impulses(2, 4410, {{1000, 0.5f}}), 2, 44100, error));
        std::ofstream(dir / "text.wav") << "RIFF but not really";
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
    expectRefused(with({"in.wav", "--set", "241=0.5"}), "parameter 241", "no such parameter");
    expectRefused(with({"in.wav", "--set", "#1: Feedback=1.5"}), "\"#1: Feedback\"", "value 1.5 is outside 0..1");
    expectRefused(with({"in.wav", "--set", "1=-0.1"}), "parameter 1", "outside 0..1");
    // A modulator's "Index" takes a parameter number.
    expectRefused(with({"in.wav", "--set", "Auto #1 Index=241"}), "\"Auto #1 Index\"", "outside 0..240");
    // A bad setting after a good one changes nothing and writes nothing.
    expectRefused(with({"in.wav", "--set", "20=0.5", "--set", "20=2"}), "parameter 20", "outside");
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
    expectRefused({"in.wav", "--bench", NOT_A_PLUGIN_SO}, NOT_A_PLUGIN_SO ": ", "not a VST2 plug-in");
}

// The tempo and the file's rate reach the plug-in: at 90 BPM and 22050 Hz a
// beat is 14700 samples, so the left echo falls into the tail, which is two
// seconds unless told otherwise.
TEST_F(RenderToolTest, EchoesLandOnTheSampleWithTempoRateAndTail) {
    std::string error;
    ASSERT_TRUE(render::writeAudioFile(dir / "slow.wav", impulses(2, 12000, {{100, 1.0f}}), 2, 22050, error));
    for (const bool tail : {true, false}) {
        SCOPED_TRACE(tail);
        std::vector<std::string> args = {"slow.wav", "-o", "out.flac", "--tempo", "90", "--block", "100", "--set",
                                         "#1: Feedback=0", "--set", "#2: Feedback=0"};
        if (!tail) args.insert(args.end(), {"--tail", "0"});
        RunResult result = run(args);
        ASSERT_EQ(result.status, 0) << result.err;
        auto out = readAudio("out.flac");
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(out->sampleRate(), 22050);
        ASSERT_EQ(out->channels(), 2);
        EXPECT_EQ(out->frames(), tail ? 12000 + 2 * 22050 : 12000);
        EXPECT_EQ(peaks(out->samples(), 2, 0, 1e-4f), (tail ? std::vector<long>{100, 14800} : std::vector<long>{100}));
        EXPECT_EQ(peaks(out->samples(), 2, 1, 1e-4f), (std::vector<long>{100, 11125}));
        EXPECT_NEAR(out->samples()[2 * 100], kDry, 1e-6);  // 24 bits in FLAC
        EXPECT_NEAR(out->samples()[2 * 11125 + 1], kWet, 1e-6);
    }
}

TEST_F(RenderToolTest, PresetsComeFromBothLibrariesAndSettingsFollowThem) {
    std::ofstream(dir / "brelmo.varitap.presets.xml")
        << "<Presets version=\"1\"><array name=\"folder\"><string name=\"name\" value=\"Mine\" />"
           "<array name=\"preset\"><string name=\"name\" value=\"Dry\" /><long name=\"Version\" value=\"1\" />"
           "<float name=\"20\" value=\"1.0\" /></array></array></Presets>\n";
    RunResult result = run({"--list-presets"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\nPing-Pong/Ping-Pong Filtered\tfactory\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\nMine/Dry\tuser\n"), std::string::npos) << result.out;

    // "Mine/Dry" passes the input unchanged; a setting of the mix silences
    // it, whether it comes before the preset on the line or after it.
    const std::vector<std::string> cases[] = {{"--preset", "Mine/Dry"},
                                              {"--preset", "Mine/Dry", "--set", "20=0"},
                                              {"--set", "20=0", "--preset", "Mine/Dry"}};
    for (const std::vector<std::string>& c : cases) {
        std::vector<std::string> args = {"in.wav", "-o", "p.wav", "--tail", "0"};
        args.insert(args.end(), c.begin(), c.end());
        result = run(args);
        ASSERT_EQ(result.status, 0) << result.err;
        auto out = readAudio("p.wav");
        EXPECT_EQ(out->samples(), (c.size() == 2 ? impulses(2, 4410, {{1000, 0.5f}}) : std::vector<float>(2 * 4410)))
            << c.size();
    }
}

TEST_F(RenderToolTest, ListsParametersWithTheirDisplays) {
    RunResult result =
        run({"--list-params", "--set", "#1: Sync=0", "--set", "#1: Delay=0.25", "--set", "Auto #1 Index=21"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("\n   21  #1: Delay                  317.4        Samples\n"), std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("Auto #1 Index              #1: Delay"), std::string::npos) << result.out;
    EXPECT_EQ(entries(dir), (std::vector<std::string>{"in.wav", "text.wav"}));  // lists write nothing
}

TEST_F(RenderToolTest, DemoRendersWithAPlotAndItsSpeed) {
    RunResult result = run({"--plot", "demo.png", "--set", "20=1"});
    ASSERT_EQ(result.status, 0) << result.err;
    auto out = readAudio("varitap-demo.wav");
    ASSERT_EQ(out->channels(), 2);
    EXPECT_GT(out->frames(), 4 * 44100);  // two bars at 120 BPM and the tail
    float peak = 0.0f;
    for (float s : out->samples()) peak = std::max(peak, std::fabs(s));
    EXPECT_GT(peak, 0.3f);
    EXPECT_LT(peak, 1.0f);
    EXPECT_EQ(readFile(dir / "demo.png").substr(1, 3), "PNG");
    EXPECT_NE(result.out.find("plot:    demo.png"), std::string::npos) << result.out;
    // How fast is for the benchmarks to say; here only that the speed is reported.
    EXPECT_TRUE(std::regex_search(result.out, std::regex("speed: +[0-9]+x real time"))) << result.out;
    EXPECT_EQ(result.err, "");  // no progress bar when stderr is not a terminal
}

// --bench times plug-in B (here the CLAP module, named by its bundle) against
// A and sets B's parameters by B's own names.
TEST_F(RenderToolTest, BenchPrintsEveryRunAndTheCostRatio) {
    RunResult result = run({"in.wav", "--bench", kClapBundle, "--rounds", "3", "--bench-set", "#1: Delay=0.5"});
    ASSERT_EQ(result.status, 0) << result.err;
    std::smatch match;
    ASSERT_TRUE(std::regex_search(result.out, match, std::regex("cost ratio A/B: ([0-9.]+)\n"))) << result.out;
    EXPECT_GT(std::stod(match[1]), 0.05);
    EXPECT_LT(std::stod(match[1]), 20.0);
    EXPECT_NE(result.out.find("run 3: A "), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find("run 4:"), std::string::npos);
    EXPECT_NE(result.out.find("B: Varitap (" + kClapBundle + "/Contents/"), std::string::npos) << result.out;
    EXPECT_EQ(entries(dir), (std::vector<std::string>{"in.wav", "text.wav"}));  // a bench writes no audio

    result = run({"in.wav", "--bench", kClapBundle, "--bench-set", "Gain=0.5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("\"Gain\""), std::string::npos) << result.err;
}

// script(1) runs the program on a pseudo-terminal, where a bar shows the
// progress; a render interrupted midway (blocks of one frame make it slow)
// leaves nothing behind.
TEST_F(RenderToolTest, ProgressBarOnATerminalAndInterruptionLeavesNothing) {
    const std::string prefix = "cd " + shellQuote(dir.path()) + " && XDG_CONFIG_HOME=" + shellQuote(dir.path()) +
                               " ";
    if (fileExists("/usr/bin/script")) {
        const std::string command = RENDER_EXE " --plugin " + kBundle + " in.wav -o t.wav";
        const std::string shell = prefix + "script -qec " + shellQuote(command) + " /dev/null > tty.txt";
        ASSERT_EQ(std::system(shell.c_str()), 0);
        const std::string tty = readFile(dir / "tty.txt");
        std::filesystem::remove(dir / "tty.txt");
        EXPECT_NE(tty.find("rendering [#####"), std::string::npos) << tty;
        EXPECT_NE(tty.find("] 100%"), std::string::npos) << tty;
        EXPECT_NE(tty.find("speed:"), std::string::npos) << tty;
        RunResult quiet = run({"in.wav", "-o", "t.wav", "-q"});
        EXPECT_EQ(quiet.status, 0);
        EXPECT_EQ(quiet.out + quiet.err, "");
        std::filesystem::remove(dir / "t.wav");
    }
    const std::string command = prefix + RENDER_EXE " --plugin " + kBundle +
                                " --block 1 --tail 30 -o slow.wav --plot slow.png 2> err.txt & pid=$!; "
                                "sleep 1; kill -INT $pid; wait $pid";
    const int status = std::system(command.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(readFile(dir / "err.txt"), "varitap-render: slow.wav: interrupted; nothing was written\n");
    std::filesystem::remove(dir / "err.txt");
    EXPECT_EQ(entries(dir), inputs);
}

// A factory preset's render of the demo, kept as a 24-bit FLAC. After an
// intended change of the engine or of the preset, write a new reference with
// VARITAP_UPDATE_REFERENCE=1 and listen to it before committing.
TEST_F(RenderToolTest, FactoryPresetRenderMatchesTheStoredReference) {
    const std::string reference = VARITAP_TEST_DATA_DIR "/tools/varitap-reference-ping-pong-filtered.flac";
    std::vector<std::string> args = {"--rate", "16000", "--tempo", "240", "--tail", "0.5",
                                     "--preset", "Ping-Pong/Ping-Pong Filtered", "-o", reference};
    if (std::getenv("VARITAP_UPDATE_REFERENCE")) {
        ASSERT_EQ(run(args).status, 0);
    }
    args.back() = "now.wav";
    RunResult result = run(args);
    ASSERT_EQ(result.status, 0) << result.err;
    auto now = readAudio("now.wav");
    std::string error;
    auto stored = render::FileSource::open(reference, error)->readAll();
    ASSERT_EQ(stored->channels(), 2) << reference;
    ASSERT_EQ(now->channels(), stored->channels());
    ASSERT_EQ(now->sampleRate(), stored->sampleRate());
    ASSERT_EQ(now->frames(), stored->frames());
    double worst = 0.0, squares = 0.0, energy = 0.0;
    for (size_t i = 0; i < now->samples().size(); ++i) {
        const double difference = std::fabs(now->samples()[i] - stored->samples()[i]);
        worst = std::max(worst, difference);
        squares += difference * difference;
        energy += static_cast<double>(stored->samples()[i]) * stored->samples()[i];
    }
    EXPECT_GT(energy, 1.0);  // the reference is not silence
    // 24-bit storage rounds by 6e-8; the rest allows for compilers and flags.
    EXPECT_LT(worst, 1e-3);
    EXPECT_LT(std::sqrt(squares / static_cast<double>(now->samples().size())), 1e-5);
}

// A damaged preset (not-a-number, infinities, numbers far outside 0..1, in
// the first layout and the current one) leaves varitap-render's instance with
// exactly the values Varitap's own applyPreset gives an instance.
TEST_F(RenderToolTest, PresetsApplyAsVaritapItselfAppliesThem) {
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
        if (!firstLayout) addValues(preset.get(), {varitap::PropertyValue::makeLong("Version", 1)});
        for (const auto& [key, value] : stored) addValues(preset.get(), {varitap::PropertyValue::makeFloat(key, value)});

        auto plugin = load();
        ASSERT_NE(plugin, nullptr);
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
// VST 2 bundle does.
TEST_F(RenderToolTest, TheClapPlugInRendersWhatTheVst2OneRenders) {
    std::vector<std::vector<float>> outputs;
    for (const std::string& plugin : {kBundle, kClapBundle + "/Contents/" VARITAP_ARCH_DIR "/Varitap.clap", kClapBundle}) {
        const std::string name = "out" + std::to_string(outputs.size()) + ".wav";
        RunResult result = run({"--plugin", plugin, "--tempo", "100", "--tail", "1", "--block", "300", "--preset",
                                "Filter Sweeps and Motion/Synced Bandpass Wah", "--set", "#1: Feedback=0.7", "-o", name});
        ASSERT_EQ(result.status, 0) << plugin << ": " << result.err;
        EXPECT_NE(result.out.find("plug-in: Varitap ("), std::string::npos) << result.out;
        outputs.push_back(readAudio(name)->samples());
    }
    ASSERT_GT(outputs[0].size(), 2u * 44100);
    EXPECT_TRUE(outputs[0] == outputs[1]);
    EXPECT_TRUE(outputs[0] == outputs[2]);
}
