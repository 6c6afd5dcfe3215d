// The VST 2.3 interface layer as a host meets it through the built bundle:
// exported names, the record, default opcode answers, capabilities,
// robustness against odd calls, scans, and the 241 parameters' names,
// displays and labels across the whole layout (with the modulators'
// deliberate oddities) and the guards around the layout.
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <string>

#include "../base/TestSupport.h"
#include "FakeHost.h"

namespace varitap::test {
namespace {

using namespace vst;

using AudioEffect = BundleTest;
using AudioEffectInstance = PluginTest;

TEST_F(AudioEffect, ExactlyThreeEntryNamesEachMakeAnInstanceAndRefusePreVst2Hosts) {
    EXPECT_EQ(commandOutput("nm -D --defined-only --format=just-symbols '" + BundleLibrary::path() + "'"),
              "VSTPluginMain\nmain\nmain_macho\n");
    for (const char* symbol : {"VSTPluginMain", "main", "main_macho"}) {
        SCOPED_TRACE(symbol);
        host.version = 2400;
        BundleLibrary library(symbol);
        ASSERT_TRUE(library.loaded()) << BundleLibrary::path();
        {
            Plugin plugin(library, host);
            ASSERT_TRUE(plugin);
            EXPECT_EQ(plugin.effect()->magic, 0x56737450);  // "VstP", as hosts compare it
        }
        host.version = 0;
        EXPECT_FALSE(Plugin(library, host));
        EXPECT_EQ(library.entry()(nullptr), nullptr);
    }
}

TEST_F(AudioEffectInstance, RecordDefaultAnswersAndCapabilities) {
    AEffect* e = plugin.effect();
    // {uniqueID ("vrtp"), programs, parameters, version}
    EXPECT_EQ(std::vector<int32_t>({e->uniqueID, e->numPrograms, e->numParams, e->version}),
              std::vector<int32_t>({0x76727470, 1, 241, 1}));
    EXPECT_EQ(e->ioRatio, 1.0f);
    // Its own object and both block calls; no double precision; the host's own field untouched.
    EXPECT_TRUE(e->object && e->process && e->processReplacing);
    EXPECT_TRUE(!e->processDoubleReplacing && !e->user);
    // Mono-capable, replacing, parameters rather than chunks.
    EXPECT_EQ(e->flags & (effFlagsCanMono | effFlagsCanReplacing | effFlagsProgramChunks | effFlagsIsSynth |
                          effFlagsCanDoubleReplacing),
              effFlagsCanMono | effFlagsCanReplacing);

    // {opcode, index, answer}; names come from the bundle, not from the
    // plug-in; every parameter can be automated, nothing outside the layout.
    const struct { int32_t opcode, index; VstIntPtr answer; } answers[] = {
        {effGetVstVersion, 0, 2300},  {effGetPlugCategory, 0, kPlugCategRoomFx},
        {effGetVendorVersion, 0, 0},  {effGetTailSize, 0, 0},
        {effGetNumProgramCategories, 0, 1}, {effKeysRequired, 0, 0},
        {effGetProgram, 0, 0},        {effGetEffectName, 0, 0},
        {effGetVendorString, 0, 0},   {effGetProductString, 0, 0},
        {effCanBeAutomated, 0, 1},    {effCanBeAutomated, 240, 1},
        {effCanBeAutomated, 241, 0},  {effCanBeAutomated, -1, 0},
        {effString2Parameter, 0, 0},  {effGetProgramNameIndexed, 0, 0},
        {effCopyProgram, 0, 0},       {effSetBypass, 0, 0},
        {effProcessEvents, 0, 0}};
    for (const auto& a : answers) {
        char buffer[64] = {};
        EXPECT_EQ(plugin.dispatch(a.opcode, a.index, 0, buffer), a.answer) << a.opcode << " " << a.index;
    }
    for (int32_t op : {effGetEffectName, effGetVendorString, effGetProductString})
        EXPECT_EQ(plugin.text(op, 0), Plugin::kUntouched) << op;
    void* chunk = nullptr;
    EXPECT_EQ(plugin.dispatch(effGetChunk, 0, 0, &chunk), 0);
    EXPECT_EQ(chunk, nullptr);

    // The editor's rectangle, one static record, before any editor opens.
    ERect *rect = nullptr, *again = nullptr;
    ASSERT_EQ(plugin.dispatch(effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(std::vector<int>({rect->top, rect->left, rect->bottom, rect->right}),
              std::vector<int>({0, 0, 400, 865}));
    plugin.dispatch(effEditGetRect, 0, 0, &again);
    EXPECT_EQ(again, rect);
    EXPECT_EQ(plugin.dispatch(effEditGetRect, 0, 0, nullptr), 0);

    // Capabilities: only its own list, byte for byte.
    for (const char* yes : {"receiveVstTimeInfo", "1in1out", "1in2out", "2in1out", "2in2out",
                            "2in4out", "4in2out", "4in4out", "4in8out", "8in4out", "8in8out"}) {
        EXPECT_EQ(plugin.dispatch(effCanDo, 0, 0, const_cast<char*>(yes)), 1) << yes;
    }
    // Unknown is 0, never -1.
    for (const char* no : {"3in3out", "sendVstTimeInfo", "receiveVstTimeInfo ", "2In2Out", "",
                           "receiveVstEvents", "2in2out\n"}) {
        EXPECT_EQ(plugin.dispatch(effCanDo, 0, 0, const_cast<char*>(no)), 0) << no;
    }
    EXPECT_EQ(plugin.dispatch(effCanDo, 0, 0, nullptr), 0);
}

TEST_F(AudioEffectInstance, SurvivesEveryOpcodeWithNullPointersAndOddValues) {
    const struct { int32_t index; VstIntPtr value; float opt; } odds[] = {
        {0, 0, 0.0f}, {-1, -1, -1.0f}, {241, 241, 1e30f}, {INT32_MAX, 7, NAN}, {INT32_MIN, -99999, INFINITY},
        {1, 1, -INFINITY}};
    for (const auto& odd : odds) {
        for (int32_t opcode = 0; opcode <= 80; ++opcode) {
            if (opcode == effClose) continue;
            // The arrangement calls carry a pointer in value: 0 there.
            const bool pointer = opcode == effSetSpeakerArrangement || opcode == effGetSpeakerArrangement;
            plugin.dispatch(opcode, odd.index, pointer ? 0 : odd.value, nullptr, odd.opt);
        }
    }
    // Still working afterwards; blocks of 0, negative and 44101 frames
    // (one past the buses) are refused with the outputs as they were.
    EXPECT_EQ(plugin.name(20), "Wet/Dry Mix Volume");
    for (int32_t i = 0; i < 241; ++i) {
        plugin.display(i);
        EXPECT_TRUE(std::isfinite(plugin.get(i))) << i;
    }
    plugin.dispatch(effMainsChanged, 0, 1);
    Plugin::Buffers in(2, std::vector<float>(44101, 0.25f)), out(2, std::vector<float>(44101, 7.0f));
    for (int32_t frames : {0, -5, 44101}) {
        plugin.processReplacing(in, out, frames);
        plugin.processAccumulating(in, out, frames);
    }
    for (auto& channel : out) EXPECT_EQ(channel, std::vector<float>(44101, 7.0f));
    plugin.processReplacing(in, out, 44100);
    EXPECT_NE(out[0][0], 7.0f);
}

// A hundred scans as hosts run them, in helper processes without a display:
// load, open, questions (every one in the first round), one block, close,
// with no fixture's instance keeping the library loaded between them. Leaks
// show up under the sanitizer build when the process ends; nothing may
// connect to the X server (a listening socket stands in for one, and nothing
// may knock); and the configuration folder stays as it was: while empty,
// nothing appears in it, and the options and presets files written halfway
// are not rewritten.
TEST(AudioEffectScan, HundredScansLeakNothingNeverConnectToTheDisplayAndLeaveTheConfigurationAlone) {
    mkdir("/tmp/.X11-unix", 01777);
    const int number = 7000 + static_cast<int>(getpid() % 2000);
    const std::string path = "/tmp/.X11-unix/X" + std::to_string(number);
    unlink(path.c_str());
    int server = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
    ASSERT_GE(server, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
    ASSERT_EQ(bind(server, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(server, 4), 0);
    const char* oldDisplay = getenv("DISPLAY");
    const std::string saved = oldDisplay ? oldDisplay : "", savedConfig = getenv("XDG_CONFIG_HOME");
    setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);
    TempDir config;
    setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);
    const std::string files[] = {config / "brelmo.varitap.presets.xml", config / "brelmo.varitap.conf"};
    // When each was written, to the nanosecond: a rewrite or a replacement changes it.
    auto written = [&] {
        return std::vector{std::filesystem::last_write_time(files[0]), std::filesystem::last_write_time(files[1])};
    };
    std::vector<std::filesystem::file_time_type> before;

    Plugin::Buffers in(2, std::vector<float>(512, 0.5f)), out = in;
    for (int round = 0; round < 100; ++round) {
        if (round == 50) {
            EXPECT_TRUE(std::filesystem::is_empty(config.path()));
            writeFile(files[0], "<Presets version=\"1\">\n\t<array name=\"folder\">\n"
                                "\t\t<string name=\"name\" value=\"Mine\" />\n\t</array>\n</Presets>\n");
            writeFile(files[1], "[brelmo.varitap]\nBackground Bitmap=default.png\n");
            before = written();
        }
        BundleLibrary library;
        ASSERT_TRUE(library.loaded());
        FakeHost host;
        Plugin plugin(library, host);
        ASSERT_TRUE(plugin);
        plugin.dispatch(effOpen);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, 48000.0f);
        plugin.dispatch(effSetBlockSize, 0, 512);
        plugin.dispatch(effCanDo, 0, 0, const_cast<char*>("receiveVstTimeInfo"));
        plugin.text(effGetVendorString, 0);
        for (int32_t i = 0; round == 0 && i < 241; ++i) {
            plugin.name(i);
            plugin.display(i);
            plugin.label(i);
        }
        ERect* rect = nullptr;
        plugin.dispatch(effEditGetRect, 0, 0, &rect);
        plugin.programName();
        plugin.dispatch(effMainsChanged, 0, 1);
        plugin.processReplacing(in, out, 512);
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.close();
    }
    pollfd knock{server, POLLIN, 0};
    EXPECT_EQ(poll(&knock, 1, 0), 0) << "the plug-in connected to the display while being scanned";
    EXPECT_EQ(written(), before);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(config.path()), {}), 2);
    if (saved.empty())
        unsetenv("DISPLAY");
    else
        setenv("DISPLAY", saved.c_str(), 1);
    setenv("XDG_CONFIG_HOME", savedConfig.c_str(), 1);
    close(server);
    unlink(path.c_str());
}

constexpr const char* kUntouched = Plugin::kUntouched;

using ParameterModelTest = PluginTest;

// Set, read back and shown, in order: {index, value set, value read, display}.
struct Row {
    int32_t index;
    float set, get;
    const char* display;
};

void expectRows(Plugin& p, std::initializer_list<Row> rows) {
    for (const Row& row : rows) {
        p.set(row.index, row.set);
        EXPECT_FLOAT_EQ(p.get(row.index), row.get) << row.index << " " << row.set;
        EXPECT_EQ(p.display(row.index), row.display) << row.index << " " << row.set;
    }
}

TEST_F(ParameterModelTest, RowsFollowTheLayoutReadBackAndShowTheirTexts) {
    Plugin& p = plugin;
    for (int s = 0; s < 10; ++s) {
        EXPECT_EQ(p.name(s), "#" + std::to_string(s + 1) + " Input Channel");
        EXPECT_EQ(p.name(10 + s), "#" + std::to_string(s + 1) + " Output Channel");
    }
    EXPECT_EQ(p.name(20), "Wet/Dry Mix Volume");
    const char* tapWords[] = {"Delay", "Volume", "Feedback", "Sync", "Filter Type", "Cutoff", "Resonance"};
    for (int t = 0; t < 10; ++t) {
        for (int s = 0; s < 7; ++s) {
            EXPECT_EQ(p.name(21 + 7 * t + s), "#" + std::to_string(t + 1) + ": " + tapWords[s]);
        }
    }
    const char* modulatorWords[] = {"Type", "Index", "Speed", "Min", "Max", "Sync", "Power"};
    // An eleventh modulator continues the formula past the layout.
    for (int m = 0; m < 11; ++m) {
        for (int s = 0; s < 15; ++s) {
            std::string expected = s < 7 ? "Auto #" + std::to_string(m + 1) + " " + modulatorWords[s]
                                         : std::string(kUntouched);
            EXPECT_EQ(p.name(91 + 15 * m + s), expected) << 91 + 15 * m + s;
        }
    }
    EXPECT_EQ(p.name(-1), kUntouched);
    EXPECT_EQ(p.name(INT_MIN), kUntouched);

    // Set, read back and shown. Channel selectors show seven-place numbers;
    // the mix a number. "Init" leaves tap 3 free at length 0; its full
    // 56000-sample line is 1269.8 ms, cut to "1269". Volume 0 in decibels;
    // filter type names; cutoff and resonance show nothing. The modulators
    // keep their oddities.
    const int tap3 = 21 + 2 * 7, m1 = 91, m10 = 91 + 9 * 15;
    EXPECT_EQ(p.display(tap3), "0.0");
    expectRows(p, {{2, 0.5f, 0.5f, "     22"}, {0, 1.0f, 1.0f, "     44"},  // Intern 4
                   {0, 0.99f, 0.99f, "     43"}, {9, 0.0f, 0.0f, "      0"},
                   {10, 1.0f, 1.0f, "     24"}, {19, 0.5f, 0.5f, "     12"},
                   {20, 0.25f, 0.25f, "0.250000"}, {tap3, 1.0f, 1.0f, "1269"},
                   {tap3 + 1, 0.0f, 0.0f, "-oo"}, {tap3 + 4, 0.0f, 0.0f, "***"},
                   {tap3 + 4, 0.5f, 0.5f, "LowPass"}, {tap3 + 5, 0.5f, 0.5f, kUntouched},
                   {tap3 + 6, 0.5f, 0.5f, kUntouched},
                   // "Index" carries a raw parameter number and shows its name.
                   {m1 + 1, 21.7f, 21.0f, "#1: Delay"}, {m1 + 1, 20.0f, 20.0f, "Wet/Dry Mix Volume"},
                   // "Power" shows the sync flag, not the power.
                   {m1 + 5, 1.0f, 1.0f, "Yes"}, {m1 + 6, 0.0f, 0.0f, "On"}, {m1 + 5, 0.0f, 0.0f, "No"},
                   {m1 + 6, 1.0f, 1.0f, "Off"}, {m1 + 6, 0.0f, 0.0f, "Off"},
                   // "Speed" shows a note value, "Min" and "Max" numbers.
                   {m1 + 2, 0.0f, 0.0f, "1/256"}, {m1 + 2, 0.55f, 0.55f, "1/4"},
                   {m1 + 2, 1.0f, 1.0f, "4"}, {m1 + 3, 0.5f, 0.5f, "0.500000"},
                   // They are values of the target's range: any number is
                   // kept as given, one that is not a number is ignored.
                   {m1 + 3, 12.25f, 12.25f, "12.25000"}, {m1 + 4, -3.0f, -3.0f, "-3.00000"},
                   {m1 + 3, std::nanf(""), 12.25f, "12.25000"}, {m1 + 4, -HUGE_VALF, -3.0f, "-3.00000"},
                   // "Type" maps to 0..3 and shows nothing, nor do the steps.
                   {m1, 1.0f, 1.0f, kUntouched}, {m1, 0.5f, 1.0f / 3.0f, kUntouched},
                   {m10 + 8, 0.125f, 0.125f, kUntouched},
                   {240, 0.3f, 0.3f, kUntouched}});
    // A table modulator's rows read and show the same way.
    p.set(m1, 1.0f);
    expectRows(p, {{m1 + 2, 1.0f, 1.0f, "4"}, {m1 + 5, 0.0f, 0.0f, "No"}, {m1 + 5, 1.0f, 1.0f, "Yes"}});
    // The other steps of the last table keep the 0 of "Init".
    for (int s : {7, 9, 10, 11, 12, 13}) EXPECT_FLOAT_EQ(p.get(m10 + s), 0.0f) << s;
    // Routing, the mix and filter rows have no label; a tap's "Delay" has
    // samples, or a tempo when synchronised.
    for (int32_t i : {0, 10, 20, tap3 + 4, 240}) EXPECT_EQ(p.label(i), kUntouched) << i;
    EXPECT_EQ(p.label(tap3), "Samples");
    p.set(tap3, 0.5f);
    EXPECT_FLOAT_EQ(p.get(tap3), 0.5f);  // 28000 samples
    // The combined block size and rate call sets the rate.
    p.dispatch(effSetBlockSizeAndSampleRate, 0, 512, nullptr, 96000.0f);
    EXPECT_EQ(p.display(tap3), "291.6");
    p.set(tap3 + 3, 1.0f);
    EXPECT_EQ(p.label(tap3), "Tempo");
    p.set(tap3, 0.0f);
    EXPECT_EQ(p.display(tap3), "1/256");

    // Indices outside the layout reach nothing.
    std::vector<float> before;
    for (int32_t i = 0; i < 241; ++i) before.push_back(p.get(i));
    for (int32_t i : {-1, -91, INT_MIN, 241, 242, 255, 256, INT_MAX}) {
        p.set(i, 0.7f);
        EXPECT_EQ(p.get(i), 0.0f) << i;
        EXPECT_EQ(p.display(i), kUntouched) << i;
        EXPECT_EQ(p.label(i), kUntouched) << i;
    }
    for (int32_t i = 0; i < 241; ++i) EXPECT_EQ(p.get(i), before[i]) << i;
}

}  // namespace
}  // namespace varitap::test
