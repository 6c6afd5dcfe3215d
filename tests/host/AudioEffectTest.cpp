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
#include <string>

#include "FakeHost.h"

namespace varitap::test {
namespace {

using namespace vst;

std::set<std::string> exportedSymbols(const std::string& path) {
    std::set<std::string> names;
    std::string command = "nm -D --defined-only '" + path + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return names;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        char address[128], type[8], name[256];
        if (std::sscanf(line, "%127s %7s %255s", address, type, name) == 3) names.insert(name);
    }
    pclose(pipe);
    return names;
}

TEST(AudioEffect, BundleExportsExactlyTheThreeEntryNames) {
    std::set<std::string> expected = {"VSTPluginMain", "main", "main_macho"};
    EXPECT_EQ(exportedSymbols(BundleLibrary::path()), expected);
}

TEST(AudioEffect, EveryEntryNameMakesAnInstanceAndRefusesPreVst2Hosts) {
    for (const char* symbol : {"VSTPluginMain", "main", "main_macho"}) {
        SCOPED_TRACE(symbol);
        BundleLibrary library(symbol);
        ASSERT_TRUE(library.loaded()) << BundleLibrary::path();
        FakeHost host;
        {
            Plugin plugin(library, host);
            ASSERT_TRUE(plugin);
            EXPECT_EQ(plugin.effect()->magic, kEffectMagic);
        }
        host.version = 0;
        Plugin refused(library, host);
        EXPECT_FALSE(refused);
        EXPECT_EQ(library.entry()(nullptr), nullptr);
    }
}

TEST(AudioEffect, RecordAndDefaultAnswers) {
    BundleLibrary library;
    ASSERT_TRUE(library.loaded());
    FakeHost host;
    Plugin plugin(library, host);
    ASSERT_TRUE(plugin);
    AEffect* e = plugin.effect();
    EXPECT_EQ(e->magic, fourCharCode('V', 's', 't', 'P'));
    EXPECT_EQ(e->numPrograms, 1);
    EXPECT_EQ(e->numParams, 241);
    EXPECT_EQ(e->uniqueID, fourCharCode('v', 'r', 't', 'p'));
    EXPECT_EQ(e->version, 1);
    EXPECT_EQ(e->initialDelay, 0);
    EXPECT_EQ(e->realQualities, 0);
    EXPECT_EQ(e->offQualities, 0);
    EXPECT_EQ(e->ioRatio, 1.0f);
    EXPECT_NE(e->object, nullptr);
    EXPECT_NE(e->process, nullptr);
    EXPECT_NE(e->processReplacing, nullptr);
    EXPECT_EQ(e->processDoubleReplacing, nullptr);
    // The host's own fields are left to the host.
    EXPECT_EQ(e->user, nullptr);
    EXPECT_EQ(e->resvd1, 0);
    EXPECT_EQ(e->resvd2, 0);
    // Mono-capable, replacing, parameters rather than chunks; no editor
    // until one is attached.
    const int32_t flags = e->flags;
    EXPECT_TRUE(flags & effFlagsCanMono);
    EXPECT_TRUE(flags & effFlagsCanReplacing);
    EXPECT_FALSE(flags & effFlagsProgramChunks);
    EXPECT_FALSE(flags & effFlagsIsSynth);
    EXPECT_FALSE(flags & effFlagsCanDoubleReplacing);

    EXPECT_EQ(plugin.dispatch(effGetVstVersion), 2300);
    EXPECT_EQ(plugin.dispatch(effGetPlugCategory), kPlugCategRoomFx);
    EXPECT_EQ(plugin.dispatch(effGetVendorVersion), 0);
    EXPECT_EQ(plugin.dispatch(effGetTailSize), 0);
    EXPECT_EQ(plugin.dispatch(effGetNumProgramCategories), 1);
    EXPECT_EQ(plugin.dispatch(effKeysRequired), 0);
    EXPECT_EQ(plugin.dispatch(effGetProgram), 0);
    void* chunk = nullptr;
    EXPECT_EQ(plugin.dispatch(effGetChunk, 0, 0, &chunk), 0);
    EXPECT_EQ(chunk, nullptr);
    // Names come from the bundle, not from the plug-in.
    for (int32_t op : {effGetEffectName, effGetVendorString, effGetProductString}) {
        EXPECT_EQ(plugin.text(op, 0), Plugin::kUntouched) << op;
        char buffer[64] = {};
        EXPECT_EQ(plugin.dispatch(op, 0, 0, buffer), 0) << op;
    }
    // Every parameter can be automated; nothing outside the layout.
    EXPECT_EQ(plugin.dispatch(effCanBeAutomated, 0), 1);
    EXPECT_EQ(plugin.dispatch(effCanBeAutomated, 240), 1);
    EXPECT_EQ(plugin.dispatch(effCanBeAutomated, 241), 0);
    EXPECT_EQ(plugin.dispatch(effCanBeAutomated, -1), 0);
    for (int32_t op : {effString2Parameter, effGetProgramNameIndexed, effCopyProgram, effSetBypass,
                       effProcessEvents}) {
        char buffer[64] = {};
        EXPECT_EQ(plugin.dispatch(op, 0, 0, buffer), 0) << op;
    }
}

TEST(AudioEffect, EditorRectangleIsAnsweredBeforeAnyEditorOpens) {
    BundleLibrary library;
    FakeHost host;
    Plugin plugin(library, host);
    ASSERT_TRUE(plugin);
    ERect* rect = nullptr;
    ASSERT_EQ(plugin.dispatch(effEditGetRect, 0, 0, &rect), 1);
    ASSERT_NE(rect, nullptr);
    EXPECT_EQ(rect->top, 0);
    EXPECT_EQ(rect->left, 0);
    EXPECT_EQ(rect->bottom, 400);
    EXPECT_EQ(rect->right, 865);
    // The same static record every time.
    ERect* again = nullptr;
    plugin.dispatch(effEditGetRect, 0, 0, &again);
    EXPECT_EQ(again, rect);
    EXPECT_EQ(plugin.dispatch(effEditGetRect, 0, 0, nullptr), 0);
}

TEST(AudioEffect, CanDoAnswersOnlyItsOwnListByteForByte) {
    BundleLibrary library;
    FakeHost host;
    Plugin plugin(library, host);
    ASSERT_TRUE(plugin);
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

// Opcodes whose value argument is a pointer: walked with value 0 there.
bool valueIsPointer(int32_t opcode) {
    return opcode == effSetSpeakerArrangement || opcode == effGetSpeakerArrangement;
}

TEST(AudioEffect, SurvivesEveryOpcodeWithNullPointersAndOddValues) {
    BundleLibrary library;
    FakeHost host;
    Plugin plugin(library, host);
    ASSERT_TRUE(plugin);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    struct Odd {
        int32_t index;
        VstIntPtr value;
        float opt;
    };
    const Odd odds[] = {{0, 0, 0.0f},        {-1, -1, -1.0f},        {241, 241, 1e30f},
                        {INT32_MAX, 7, nan}, {INT32_MIN, -99999, inf}, {1, 1, -inf}};
    for (const Odd& odd : odds) {
        for (int32_t opcode = 0; opcode <= 80; ++opcode) {
            if (opcode == effClose) continue;
            VstIntPtr value = valueIsPointer(opcode) ? 0 : odd.value;
            plugin.dispatch(opcode, odd.index, value, nullptr, odd.opt);
        }
    }
    // Still working afterwards: names, displays and a block.
    EXPECT_EQ(plugin.name(20), "Wet/Dry Mix Volume");
    for (int32_t i = 0; i < 241; ++i) {
        plugin.display(i);
        EXPECT_TRUE(std::isfinite(plugin.get(i))) << i;
    }
    plugin.dispatch(effMainsChanged, 0, 1);
    std::vector<std::vector<float>> in(2, std::vector<float>(44101, 0.25f));
    std::vector<std::vector<float>> out(2, std::vector<float>(44101, 7.0f));
    plugin.processReplacing(in, out, 0);
    plugin.processAccumulating(in, out, 0);
    plugin.processReplacing(in, out, -5);
    for (auto& channel : out) EXPECT_EQ(channel[0], 7.0f);
    // One frame past the buses: refused, outputs as they were.
    plugin.processReplacing(in, out, 44101);
    plugin.processAccumulating(in, out, 44101);
    for (auto& channel : out) {
        EXPECT_EQ(channel[0], 7.0f);
        EXPECT_EQ(channel[44100], 7.0f);
    }
    plugin.processReplacing(in, out, 44100);
    for (auto& channel : out) {
        EXPECT_NE(channel[0], 7.0f);
        EXPECT_TRUE(std::isfinite(channel[44099]));
        EXPECT_EQ(channel[44100], 7.0f);
    }
}

TEST(AudioEffect, LoadOpenProcessCloseHundredTimes) {
    // Leaks show up under the sanitizer build when the process ends.
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
        plugin.dispatch(effMainsChanged, 0, 1);
        plugin.processReplacing(in, out, 512);
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.close();
    }
}

// Hosts scan plug-ins in helper processes without a display: loading,
// opening, every query and closing must not connect to the X server. A
// listening socket stands in for one; nothing may knock.
TEST(AudioEffect, ScanningNeverConnectsToTheDisplay) {
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
    std::string saved = oldDisplay ? oldDisplay : "";
    setenv("DISPLAY", (":" + std::to_string(number)).c_str(), 1);
    {
        BundleLibrary library;
        ASSERT_TRUE(library.loaded());
        FakeHost host;
        Plugin plugin(library, host);
        ASSERT_TRUE(plugin);
        plugin.dispatch(effOpen);
        for (int32_t i = 0; i < 241; ++i) {
            plugin.name(i);
            plugin.display(i);
            plugin.label(i);
        }
        ERect* rect = nullptr;
        plugin.dispatch(effEditGetRect, 0, 0, &rect);
        plugin.programName();
        plugin.dispatch(effMainsChanged, 0, 1);
        std::vector<std::vector<float>> in(2, std::vector<float>(256, 0.1f));
        std::vector<std::vector<float>> out(2, std::vector<float>(256));
        plugin.processReplacing(in, out, 256);
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.close();
    }
    pollfd knock{server, POLLIN, 0};
    EXPECT_EQ(poll(&knock, 1, 0), 0) << "the plug-in connected to the display while being scanned";
    if (saved.empty()) {
        unsetenv("DISPLAY");
    } else {
        setenv("DISPLAY", saved.c_str(), 1);
    }
    close(server);
    unlink(path.c_str());
}

}  // namespace
}  // namespace varitap::test
