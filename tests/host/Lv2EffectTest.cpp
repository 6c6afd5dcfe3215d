// The LV2 plug-in as hosts see it: the built Varitap.lv2 bundle checked by
// Debian's LV2 tools (lv2_validate, lv2info), its module loaded
// through lv2_descriptor beside the VST 2 module and the CLAP module (the
// same samples for the same parameters, tempo and blocks), and bad input
// (sample rates, block sizes, state).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "../base/TestSupport.h"
#include "FakeHost.h"
#include "FakeLv2Host.h"
#include "host/ParameterInfo.h"
#include "persistence/PresetParameters.h"
#include "persistence/PresetLibrary.h"
#include "tools/render/AudioFiles.h"
#include "tools/render/PluginInstance.h"
#include "tools/render/PresetFile.h"

namespace varitap::test {
namespace {

TEST(Lv2Bundle, ValidatesAndDescribesEveryParameterAsTheVst2PluginNamesIt) {
    int status = -1;
    const std::string bundle = Lv2Library::bundlePath();
    const std::string validation =
        commandOutput("lv2_validate '" + bundle + "/manifest.ttl' '" + bundle + "/Varitap.ttl' 2>&1", &status);
    EXPECT_EQ(status, 0) << validation;
    EXPECT_NE(validation.find("Found 0 errors"), std::string::npos) << validation;

    const std::string info = commandOutput("LV2_PATH='" + bundle + "/..' lv2info urn:brelmo:varitap 2>&1", &status);
    ASSERT_EQ(status, 0) << info;
    auto count = [&](const char* word) {
        const std::regex pattern(word);
        return std::distance(std::sregex_iterator(info.begin(), info.end(), pattern), std::sregex_iterator());
    };
    EXPECT_EQ(count("lv2core#ControlPort"), 241);
    EXPECT_EQ(count("lv2core#AudioPort"), 4);
    for (const char* line : {"http://lv2plug.in/ns/lv2core#hardRTCapable", "http://lv2plug.in/ns/ext/state#interface",
                             "Symbol:      mod1_index", "lv2core#connectionOptional"})
        EXPECT_NE(info.find(line), std::string::npos) << line;

    // The Turtle's names are the ones the VST 2 plug-in gives its hosts;
    // symbols are unique.
    std::string error;
    auto vst2 = render::loadPlugin(BundleLibrary::path(), error);
    ASSERT_NE(vst2, nullptr) << error;
    std::set<std::string> symbols;
    for (int32_t i = 0; i < kParameterCount; ++i) {
        const ParameterInfo p = parameterInfo(i);
        EXPECT_TRUE(symbols.insert(p.symbol).second) << p.symbol;
        EXPECT_NE(info.find("Symbol:      " + p.symbol + "\n"), std::string::npos) << p.symbol;
        const std::string vstName = vst2->parameterName(i);
        if (!vstName.empty()) {
            EXPECT_EQ(p.name, vstName) << i;
        }
        for (const ParameterChoice& choice : p.choices) {
            // Every choice reads back as itself through the plug-in.
            vst2->setParameter(i, choice.value);
            EXPECT_EQ(vst2->getParameter(i), choice.value) << i << " " << choice.label;
        }
    }
    EXPECT_EQ(parameterInfo(kParameterCount).symbol, "");
}

// The command the README gives: lilv's offline host loads the bundle by URI,
// leaves the atom ports unconnected and sets controls by symbol. Tap 1 at
// 1000.5 of 56000 samples, all wet, renders the impulse 1000 samples later
// on the left and nothing else.
TEST(Lv2Bundle, Lv2applyRendersTheEchoWhereItBelongs) {
#ifdef VARITAP_SANITIZED_MODULES
    GTEST_SKIP() << "lv2apply cannot load a module built with sanitizers";
#endif
    TempDir temp;
    std::vector<float> frames(2 * 8000, 0.0f);
    frames[2 * 100] = 1.0f;
    std::string error;
    ASSERT_TRUE(render::writeAudioFile(temp.path() + "/in.wav", frames, 2, 44100, error)) << error;
    int status = -1;
    const std::string output = commandOutput(
        "cd '" + temp.path() + "' && LV2_PATH='" + Lv2Library::bundlePath() +
            "/..' lv2apply -i in.wav -o out.wav -c wet_dry 0 -c tap1_sync 0 -c tap1_delay " +
            std::to_string(1000.5 / 56000) + " -c tap1_feedback 0 -c tap2_volume 0 urn:brelmo:varitap 2>&1",
        &status);
    ASSERT_EQ(status, 0) << output;
    auto file = render::FileSource::open(temp.path() + "/out.wav", error);
    ASSERT_NE(file, nullptr) << error;
    ASSERT_EQ(file->channels(), 2);
    std::vector<float> expected(2 * 8000, 0.0f);
    expected[2 * 1100] = 1.0f;
    frames = file->readAll()->samples();
    ASSERT_EQ(frames.size(), expected.size());
    for (size_t i = 0; i < frames.size(); ++i) ASSERT_NEAR(frames[i], expected[i], 1e-6f) << "sample " << i;
}

// The three modules side by side, the VST 2 and CLAP ones through
// varitap-render's hosts (playing from sample 0 at 120 BPM), the LV2 one
// told the same with a time:Position event: the same parameters and blocks
// give the same samples.
void expectSameSamples(const Lv2Library& lv2Library, const std::vector<float>& values, const std::string& what) {
    constexpr int32_t kBlock = 512;
    SCOPED_TRACE(what);
    std::string error;
    std::unique_ptr<render::HostedPlugin> hosted[] = {render::loadPlugin(BundleLibrary::path(), error),
                                                      render::loadPlugin(VARITAP_CLAP_MODULE, error)};
    Lv2Plugin lv2(lv2Library, 44100.0, kBlock);
    ASSERT_TRUE(hosted[0] && hosted[1] && lv2) << error;
    lv2.activate();
    for (auto& plugin : hosted) {
        plugin->start(44100.0, kBlock, 2, 2, 120.0);
        for (int32_t i = 0; i < kParameterCount; ++i) plugin->setParameter(i, values[i]);
    }
    std::copy(values.begin(), values.end(), lv2.control);
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
    std::vector<float> in[2] = {std::vector<float>(kBlock), std::vector<float>(kBlock)};
    std::vector<float> out[2] = {in[0], in[1]};
    size_t differences[2] = {0, 0};
    for (int block = 0; block < 200; ++block) {
        for (int c = 0; c < 2; ++c) {
            for (float& x : in[c]) x = block % 40 < 4 ? noise(random) : 0.0f;
            // The engines may scale inputs in place: each gets its own copy.
            for (auto& plugin : hosted) std::copy(in[c].begin(), in[c].end(), plugin->inputs()[c]);
        }
        const float* lv2In[2] = {in[0].data(), in[1].data()};
        float* lv2Out[2] = {out[0].data(), out[1].data()};
        const Lv2Plugin::Position start{0, 1.0f, 120.0f};
        lv2.run(lv2In, lv2Out, kBlock, block == 0 ? &start : nullptr);
        for (int f = 0; f < 2; ++f) {
            hosted[f]->process(kBlock);
            for (int c = 0; c < 2; ++c)
                differences[f] += std::memcmp(hosted[f]->outputs()[c], out[c].data(), sizeof(float) * kBlock) != 0;
        }
    }
    EXPECT_EQ(differences[0], 0u) << "VST 2";
    EXPECT_EQ(differences[1], 0u) << "CLAP";
}

TEST(Formats, InitEveryFactoryPresetAndARandomStateSoundTheSame) {
    Lv2Library lv2;
    ASSERT_TRUE(lv2.loaded());
    std::vector<float> init(kParameterCount);
    for (int32_t i = 0; i < kParameterCount; ++i) init[i] = parameterInfo(i).defaultValue;
    expectSameSamples(lv2, init, "Init");

    // Every factory preset with the values Varitap applies for it.
    auto library = makeRef<PresetLibrary>();
    render::loadPresetLibrary(*library, VARITAP_BUNDLE_DIR);
    const std::vector<render::PresetEntry> presets = render::listPresets(*library);
    EXPECT_GE(presets.size(), 30u);
    for (const render::PresetEntry& entry : presets) {
        std::vector<float> values = init;
        for (const auto& [index, value] : presetParameterValues(*entry.preset)) values[index] = value;
        expectSameSamples(lv2, values, entry.fullName);
    }

    std::mt19937 random(2024);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::uniform_int_distribution<int> target(kWetDryParameter, kParameterCount - 1);
    std::vector<float> state(kParameterCount);
    for (int32_t i = 0; i < kParameterCount; ++i) {
        const bool isIndex = parameterInfo(i).kind == ParameterInfo::kInteger;
        state[i] = isIndex ? static_cast<float>(target(random)) : unit(random);
    }
    expectSameSamples(lv2, state, "random");
}

// A host looping back to frame 0 (a time:Position event) brings a playing
// modulator back where it started.
TEST(Lv2Effect, LoopingBackToFrameZeroBringsTheModulatorsBack) {
    Lv2Library library;
    ASSERT_TRUE(library.loaded());
    Lv2Plugin plugin(library, 44100.0);
    ASSERT_TRUE(plugin);
    plugin.control[modulatorParameterIndex(0, kModulatorIndex)] = static_cast<float>(tapParameterIndex(1, kTapVolume));
    plugin.control[modulatorParameterIndex(0, kModulatorSpeed)] = 0.5f;
    plugin.control[modulatorParameterIndex(0, kModulatorMax)] = 1.0f;
    plugin.control[modulatorParameterIndex(0, kModulatorPower)] = 1.0f;
    plugin.activate();
    std::vector<float> in(4096), out[2] = {in, in};
    const float* ins[2] = {in.data(), in.data()};
    float* outs[2] = {out[0].data(), out[1].data()};
    auto parameters = [&](const Lv2Plugin::Position* position) {
        plugin.run(ins, outs, 4096, position);
        return plugin.save().at("urn:brelmo:varitap#parameters").bytes;
    };
    const Lv2Plugin::Position start{0, 1.0f, 120.0f};
    const std::vector<unsigned char> first = parameters(&start);
    EXPECT_NE(parameters(nullptr), first);
    EXPECT_EQ(parameters(&start), first);
}

std::vector<unsigned char> bytesOf(const void* data, size_t size) {
    const auto* p = static_cast<const unsigned char*>(data);
    return std::vector<unsigned char>(p, p + size);
}

bool finite(const std::vector<float>& samples) {
    return std::all_of(samples.begin(), samples.end(), [](float x) { return std::isfinite(x); });
}

// Any rate from 8000 to 384000 Hz, blocks of 0 frames and of the host's
// maximum (above the engine's 44100), hosts without urid:map or options,
// and states with missing, extra or garbled values: nothing crashes, the
// output stays finite, and the user's folder stays empty, as a VST 2 scan
// leaves it (AudioEffectScan).
TEST(Lv2Effect, BadInputIsHarmless) {
    Lv2Library library;
    ASSERT_TRUE(library.loaded());
    TempDir config;
    const std::string home = getenv("XDG_CONFIG_HOME");
    setenv("XDG_CONFIG_HOME", config.path().c_str(), 1);

    constexpr uint32_t kMaxBlock = 65536;
    std::vector<float> in[2] = {std::vector<float>(kMaxBlock, 0.25f), std::vector<float>(kMaxBlock, -0.25f)};
    std::vector<float> out[2] = {std::vector<float>(kMaxBlock), std::vector<float>(kMaxBlock)};
    const float* ins[2] = {in[0].data(), in[1].data()};
    float* outs[2] = {out[0].data(), out[1].data()};
    for (double rate : {8000.0, 11025.0, 22050.0, 44100.0, 48000.0, 88200.0, 96000.0, 192000.0, 384000.0}) {
        for (int features = 0; features < 2; ++features) {
            SCOPED_TRACE(std::to_string(rate) + (features ? " with" : " without") + " features");
            Lv2Plugin plugin(library, rate, features ? kMaxBlock : 0, features != 0);
            ASSERT_TRUE(plugin);
            plugin.control[20] = 0.0f;  // all wet
            plugin.activate();
            plugin.run(ins, outs, 0);
            const Lv2Plugin::Position playing{123456, 1.0f, 97.0f};
            plugin.run(ins, outs, kMaxBlock, features ? &playing : nullptr);
            EXPECT_TRUE(finite(out[0]) && finite(out[1]));
        }
    }

    // A host whose instantiation rate means nothing (the sample rate option
    // stands in), and one that passes no features at all, as offline hosts
    // such as lv2apply do (no transport: 120 BPM, stopped): the "Init" tap 1
    // (a "1/4") echoes 22050 samples after the impulse at 44100 Hz.
    for (auto& channel : in) std::fill(channel.begin(), channel.end(), 0.0f);
    for (bool features : {true, false}) {
        SCOPED_TRACE(features ? "rate 0, option 44100 Hz" : "no features");
        Lv2Plugin plugin(library, features ? 0.0 : 44100.0, features ? kMaxBlock : 0, features, 44100.0f);
        ASSERT_TRUE(plugin);
        plugin.activate();
        in[0][0] = 1.0f;
        plugin.run(ins, outs, 11025);
        in[0][0] = 0.0f;
        plugin.run(ins, outs, 11025);
        plugin.run(ins, outs, 11025);
        EXPECT_FLOAT_EQ(out[0][0], 1.0f - parameterInfo(kWetDryParameter).defaultValue);
    }

    Lv2Plugin source(library, 48000.0);
    source.control[22] = 0.5f;   // tap 1 volume
    source.control[92] = 33.0f;  // modulator 1 aims at 33
    source.activate();
    source.run(ins, outs, 256);
    const Lv2Plugin::State saved = source.save();
    // Two values: the program's name and its parameters (at() fails the test on another key).
    ASSERT_EQ(saved.size(), 2u);
    const std::string key = "urn:brelmo:varitap#";

    Lv2Plugin target(library, 48000.0);
    target.activate();
    target.restore(saved);
    EXPECT_EQ(target.save(), saved);
    // The host's ports still rule: the next run applies those it left as
    // they were (all of them here) over the restored values.
    std::vector<unsigned char> ports(saved.at(key + "parameters").bytes);
    std::memcpy(ports.data() + 8, target.control, 4 * kParameterCount);
    target.run(ins, outs, 0);
    EXPECT_EQ(target.save().at(key + "parameters").bytes, ports);

    // Missing and extra values leave the rest as it was.
    target.restore({});
    Lv2Plugin::State extra = saved;
    extra[key + "unknown"] = {"http://lv2plug.in/ns/ext/atom#Int", bytesOf("\1\0\0\0", 4)};
    target.restore(extra);
    EXPECT_EQ(target.save(), saved);

    // Garbled: wrong types, a name without its terminator, a vector shorter
    // than its header, of the wrong child type, too long, with NaN and
    // infinities.
    const std::string atom = "http://lv2plug.in/ns/ext/atom#";
    std::vector<unsigned char> longVector = saved.at(key + "parameters").bytes;
    const float bad[] = {NAN, INFINITY, -INFINITY, 2.5f};
    for (int i = 0; i < 100; ++i) {
        const std::vector<unsigned char> value = bytesOf(&bad[i % 4], 4);
        longVector.insert(longVector.end(), value.begin(), value.end());
    }
    std::memcpy(longVector.data() + 8 + 4 * 21, &bad[0], 4);  // tap 1 delay: NaN
    std::vector<unsigned char> wrongChild = saved.at(key + "parameters").bytes;
    wrongChild[4] ^= 0x7f;  // child type
    const Lv2Plugin::State garbled[] = {
        {{key + "programName", {atom + "Int", bytesOf("Init", 4)}}},
        {{key + "programName", {atom + "String", bytesOf("Unterminated name", 17)}}},
        {{key + "programName", {atom + "String", {}}}},
        {{key + "parameters", {atom + "Vector", bytesOf("\4\0\0", 3)}}},
        {{key + "parameters", {atom + "Vector", wrongChild}}},
        {{key + "parameters", {atom + "Float", bytesOf("\0\0\0\0", 4)}}},
        {{key + "parameters", {atom + "Vector", longVector}}},
    };
    for (const Lv2Plugin::State& state : garbled) target.restore(state);
    const Lv2Plugin::State after = target.save();
    const std::vector<unsigned char>& values = after.at(key + "parameters").bytes;
    ASSERT_EQ(values.size(), 8u + 4u * kParameterCount);
    for (int32_t i = 0; i < kParameterCount; ++i) {
        float v;
        std::memcpy(&v, values.data() + 8 + 4 * i, 4);
        EXPECT_TRUE(std::isfinite(v)) << i;
    }
    EXPECT_EQ(after.at(key + "programName").bytes, bytesOf("Unterminated name", 18));
    target.run(ins, outs, 4096);
    EXPECT_TRUE(finite(out[0]) && finite(out[1]));

    EXPECT_TRUE(std::filesystem::is_empty(config.path()));
    setenv("XDG_CONFIG_HOME", home.c_str(), 1);
}

}  // namespace
}  // namespace varitap::test
