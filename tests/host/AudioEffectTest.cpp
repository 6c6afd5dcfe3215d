// The VST 2.3 interface layer as a host meets it through the built bundle:
// exported names, the record, default opcode answers, capabilities, and
// robustness against odd calls.
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <set>
#include <sstream>
#include <string>

#include "FakeHost.h"

namespace varitap::test {
namespace {

using namespace vst;

std::set<std::string> exportedSymbols(const std::string& path) {
    std::istringstream lines(commandOutput("nm -D --defined-only '" + path + "' 2>/dev/null"));
    std::set<std::string> names;
    for (std::string address, type, name; lines >> address >> type >> name;) names.insert(name);
    return names;
}

using AudioEffect = InstanceTest;

TEST_F(AudioEffect, ExactlyThreeEntryNamesEachMakeAnInstanceAndRefusePreVst2Hosts) {
    const std::set<std::string> expected = {"VSTPluginMain", "main", "main_macho"};
    EXPECT_EQ(exportedSymbols(BundleLibrary::path()), expected);
    for (const std::string& symbol : expected) {
        SCOPED_TRACE(symbol);
        host.version = 2400;
        BundleLibrary library(symbol.c_str());
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

TEST_F(AudioEffect, RecordAndDefaultAnswers) {
    Plugin& plugin = *instance;
    AEffect* e = plugin.effect();
    EXPECT_EQ(e->uniqueID, 0x76727470);  // "vrtp"
    EXPECT_EQ(e->numPrograms, 1);
    EXPECT_EQ(e->numParams, 241);
    EXPECT_EQ(e->version, 1);
    EXPECT_EQ(e->ioRatio, 1.0f);
    EXPECT_NE(e->object, nullptr);
    EXPECT_NE(e->process, nullptr);
    EXPECT_NE(e->processReplacing, nullptr);
    EXPECT_EQ(e->processDoubleReplacing, nullptr);
    EXPECT_EQ(e->user, nullptr);  // the host's own field
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
}

TEST_F(AudioEffect, CanDoAnswersOnlyItsOwnListByteForByte) {
    Plugin& plugin = *instance;
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

TEST_F(AudioEffect, SurvivesEveryOpcodeWithNullPointersAndOddValues) {
    Plugin& plugin = *instance;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct { int32_t index; VstIntPtr value; float opt; } odds[] = {
        {0, 0, 0.0f}, {-1, -1, -1.0f}, {241, 241, 1e30f}, {INT32_MAX, 7, nan}, {INT32_MIN, -99999, inf},
        {1, 1, -inf}};
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
    std::vector<std::vector<float>> in(2, std::vector<float>(44101, 0.25f));
    std::vector<std::vector<float>> out(2, std::vector<float>(44101, 7.0f));
    for (int32_t frames : {0, -5, 44101}) {
        plugin.processReplacing(in, out, frames);
        plugin.processAccumulating(in, out, frames);
    }
    for (auto& channel : out) EXPECT_EQ(channel, std::vector<float>(44101, 7.0f));
    plugin.processReplacing(in, out, 44100);
    EXPECT_NE(out[0][0], 7.0f);
}

// A hundred loads, opens, blocks and closes (no fixture's instance keeps the
// library loaded between them): leaks show up under the sanitizer build when
// the process ends. Hosts scan plug-ins in helper processes without a
// display, so none of it (nor the first round's every query) may connect to
// the X server: a listening socket stands in for one, and nothing may knock.
TEST(AudioEffectScan, HundredLoadsLeakNothingAndNeverConnectToTheDisplay) {
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
    const std::string saved = oldDisplay ? oldDisplay : "";
    setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);

    std::vector<std::vector<float>> in(2, std::vector<float>(512, 0.5f));
    std::vector<std::vector<float>> out(2, std::vector<float>(512, 0.0f));
    for (int round = 0; round < 100; ++round) {
        BundleLibrary library;
        ASSERT_TRUE(library.loaded());
        FakeHost host;
        Plugin plugin(library, host);
        ASSERT_TRUE(plugin);
        plugin.dispatch(effOpen);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, 48000.0f);
        plugin.dispatch(effSetBlockSize, 0, 512);
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
    if (saved.empty())
        unsetenv("DISPLAY");
    else
        setenv("DISPLAY", saved.c_str(), 1);
    close(server);
    unlink(path.c_str());
}

}  // namespace
}  // namespace varitap::test
