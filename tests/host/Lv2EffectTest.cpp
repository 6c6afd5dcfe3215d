// The LV2 plug-in as hosts see it: the built Varitap.lv2 bundle checked by
// Debian's LV2 tools (lv2_validate, lv2info, lv2apply), its module loaded
// through lv2_descriptor beside the VST 2 module and the CLAP module (the
// same samples for the same parameters, tempo and blocks), and bad input
// (sample rates, block sizes, state).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "../base/TestSupport.h"
#include "FakeHost.h"
#include "FakeLv2Host.h"
#include "host/DelayEffect.h"
#include "host/ParameterInfo.h"
#include "host/clap/ClapInterface.h"
#include "persistence/Preset.h"
#include "persistence/PresetLibrary.h"
#include "persistence/PropertyValue.h"
#include "tools/render/AudioFiles.h"
#include "tools/render/ClapHost.h"

namespace varitap::test {
namespace {

using namespace vst;

std::string lv2Path() { return Lv2Library::bundlePath() + "/.."; }

size_t countOf(const std::string& text, const std::string& word) {
    size_t count = 0;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++count;
    return count;
}

TEST(Lv2Bundle, ValidatesAndDescribesEveryParameterAsTheVst2PluginNamesIt) {
    int status = -1;
    const std::string bundle = Lv2Library::bundlePath();
    const std::string validation =
        commandOutput("lv2_validate '" + bundle + "/manifest.ttl' '" + bundle + "/Varitap.ttl' 2>&1", &status);
    EXPECT_EQ(status, 0) << validation;
    EXPECT_NE(validation.find("Found 0 errors"), std::string::npos) << validation;

    const std::string info = commandOutput("LV2_PATH='" + lv2Path() + "' lv2info urn:brelmo:varitap 2>&1", &status);
    ASSERT_EQ(status, 0) << info;
    EXPECT_EQ(countOf(info, "lv2core#ControlPort"), 241u);
    EXPECT_EQ(countOf(info, "lv2core#AudioPort"), 4u);
    EXPECT_NE(info.find("http://lv2plug.in/ns/lv2core#hardRTCapable"), std::string::npos);
    EXPECT_NE(info.find("http://lv2plug.in/ns/ext/state#interface"), std::string::npos);
    EXPECT_NE(info.find("Symbol:      mod1_index"), std::string::npos);
    EXPECT_NE(info.find("lv2core#connectionOptional"), std::string::npos);

    // The Turtle's names are the ones the VST 2 plug-in gives its hosts;
    // symbols are unique.
    BundleLibrary library;
    ASSERT_TRUE(library.loaded());
    FakeHost host;
    Plugin vst2(library, host);
    ASSERT_TRUE(vst2);
    std::set<std::string> symbols;
    for (int32_t i = 0; i < kParameterCount; ++i) {
        const ParameterInfo p = parameterInfo(i);
        EXPECT_TRUE(symbols.insert(p.symbol).second) << p.symbol;
        EXPECT_NE(info.find("Symbol:      " + p.symbol + "\n"), std::string::npos) << p.symbol;
        const std::string vstName = vst2.name(i);
        if (vstName != Plugin::kUntouched) {
            EXPECT_EQ(p.name, vstName) << i;
        }
        for (const ParameterChoice& choice : p.choices) {
            // Every choice reads back as itself through the plug-in.
            vst2.set(i, choice.value);
            EXPECT_EQ(vst2.get(i), choice.value) << i << " " << choice.label;
        }
    }
    EXPECT_EQ(parameterInfo(kParameterCount).symbol, "");
}

// lv2apply (Debian's lilv-utils) runs an impulse through tap 1 set free at
// 1000 samples, all wet, tap 2 silent: the echo is 1000 samples later on the
// left only. The files go through varitap-render's audio files.
TEST(Lv2Bundle, Lv2applyRendersTheEchoWhereItBelongs) {
#ifdef VARITAP_SANITIZED_MODULES
    GTEST_SKIP() << "lv2apply cannot load a module built with sanitizers";
#endif
    TempDir temp;
    const std::string& dir = temp.path();
    std::vector<float> impulse(2 * 8000, 0.0f);
    impulse[2 * 100] = 1.0f;
    std::string error;
    ASSERT_TRUE(render::writeAudioFile(dir + "/in.wav", impulse, 2, 44100, error)) << error;

    int status = -1;
    const std::string output = commandOutput(
        "LV2_PATH='" + lv2Path() + "' lv2apply -i '" + dir + "/in.wav' -o '" + dir +
            "/out.wav' -c wet_dry 0 -c tap1_sync 0 -c tap1_delay " + std::to_string(1000.5 / 56000) +
            " -c tap1_feedback 0 -c tap2_volume 0 urn:brelmo:varitap 2>&1",
        &status);
    ASSERT_EQ(status, 0) << output;
    auto file = render::FileSource::open(dir + "/out.wav", error);
    ASSERT_NE(file, nullptr) << error;
    ASSERT_EQ(file->channels(), 2);
    const std::vector<float> frames = file->readAll()->samples();
    ASSERT_EQ(frames.size(), 2 * 8000u);
    // Left at even positions, right at odd ones.
    size_t loudest = 0;
    for (size_t i = 0; i < frames.size(); i += 2)
        if (frames[i] > frames[loudest]) loudest = i;
    float elsewhere = 0.0f;
    for (size_t i = 0; i < frames.size(); ++i)
        if (i != loudest) elsewhere = std::max(elsewhere, std::fabs(frames[i]));
    EXPECT_EQ(loudest / 2, 1100u);
    EXPECT_FLOAT_EQ(frames[loudest], 1.0f);
    EXPECT_LT(elsewhere, 1e-6f);
}

// The CLAP module through varitap-render's module loader and host record:
// one instance, its values sent as parameter events with the next block.
class ClapPlugin {
public:
    ClapPlugin(double rate, uint32_t maxBlock) {
        std::string error;
        if (!module_.open(VARITAP_CLAP_MODULE, error)) return;
        const clap::clap_plugin_factory* factory = module_.factory();
        plugin_ = factory->create_plugin(factory, &host_.record, factory->get_plugin_descriptor(factory, 0)->id);
        if (plugin_ && !(plugin_->init(plugin_) && plugin_->activate(plugin_, rate, 1, maxBlock) &&
                         plugin_->start_processing(plugin_))) {
            plugin_->destroy(plugin_);
            plugin_ = nullptr;
        }
    }
    ~ClapPlugin() {
        if (!plugin_) return;
        plugin_->stop_processing(plugin_);
        plugin_->deactivate(plugin_);
        plugin_->destroy(plugin_);
    }
    explicit operator bool() const { return plugin_ != nullptr; }

    render::ClapInputEvents values;  // values as the VST 2 plug-in takes them

    // One block; transport null: the host gives none.
    void process(float* const* in, float* const* out, uint32_t frames, const clap::clap_event_transport* transport) {
        clap::clap_audio_buffer input{const_cast<float**>(in), nullptr, 2, 0, 0};
        clap::clap_audio_buffer output{const_cast<float**>(out), nullptr, 2, 0, 0};
        render::ClapOutputEvents sink;
        clap::clap_process p{-1, frames, transport, &input, &output, 1, 1, &values.record, &sink.record};
        plugin_->process(plugin_, &p);
        values.values.clear();
    }

private:
    render::ClapModule module_;  // unloaded after the plug-in is destroyed
    render::ClapHost host_;
    const clap::clap_plugin* plugin_ = nullptr;
};

// The three modules side by side: one VST 2, one LV2 and one CLAP instance
// given the same parameters, tempo, transport and blocks.
class Formats : public ::testing::Test {
protected:
    static constexpr int32_t kBlock = 512;
    static constexpr int kBlocks = 200;
    BundleLibrary vstLibrary;
    Lv2Library lv2Library;
    FakeHost host;

    void SetUp() override {
        ASSERT_TRUE(vstLibrary.loaded());
        ASSERT_TRUE(lv2Library.loaded());
    }

    // Renders noise bursts through both and expects the same samples. With
    // playing false, neither hears a transport: 120 BPM, stopped.
    void expectSameSamples(const std::vector<float>& values, bool playing, const std::string& what) {
        SCOPED_TRACE(what + (playing ? " (playing)" : " (stopped)"));
        Plugin vst2(vstLibrary, host);
        ASSERT_TRUE(vst2);
        vst2.dispatch(effSetSampleRate, 0, 0, nullptr, 44100.0f);
        vst2.dispatch(effSetBlockSize, 0, kBlock);
        vst2.dispatch(effMainsChanged, 0, 1);
        Lv2Plugin lv2(lv2Library, 44100.0, kBlock);
        ASSERT_TRUE(lv2);
        lv2.activate();
        ClapPlugin clapPlugin(44100.0, kBlock);
        ASSERT_TRUE(clapPlugin);
        for (int32_t i = 0; i < kParameterCount; ++i) {
            vst2.set(i, values[i]);
            lv2.control[i] = values[i];
            clapPlugin.values.add(static_cast<clap::clap_id>(i), values[i]);
        }
        host.time.flags = kVstTempoValid | (playing ? kVstTransportPlaying : 0);
        std::mt19937 random(7);
        std::uniform_real_distribution<float> noise(-0.5f, 0.5f);
        Plugin::Buffers in(2, std::vector<float>(kBlock)), out(2, std::vector<float>(kBlock));
        std::vector<float> lv2Out[2] = {std::vector<float>(kBlock), std::vector<float>(kBlock)};
        std::vector<float> clapOut[2] = {std::vector<float>(kBlock), std::vector<float>(kBlock)};
        size_t differences = 0, clapDifferences = 0;
        for (int block = 0; block < kBlocks; ++block) {
            for (int c = 0; c < 2; ++c) {
                for (float& x : in[c]) x = block % 40 < 4 ? noise(random) : 0.0f;
            }
            host.time.samplePos = static_cast<double>(block) * kBlock;
            // The engines may scale inputs in place: each gets its own copy.
            Plugin::Buffers vstIn = in, clapIn = in;
            vst2.processReplacing(vstIn, out, kBlock);
            const float* lv2In[2] = {in[0].data(), in[1].data()};
            float* lv2Outs[2] = {lv2Out[0].data(), lv2Out[1].data()};
            const Lv2Plugin::Position start{0, 1.0f, 120.0f};
            lv2.run(lv2In, lv2Outs, kBlock, playing && block == 0 ? &start : nullptr);
            clap::clap_event_transport transport{};
            transport.header = {sizeof transport, 0, clap::kCoreEventSpaceId, clap::kEventTransport, 0};
            transport.flags = clap::kTransportHasTempo | clap::kTransportIsPlaying | clap::kTransportHasSecondsTimeline;
            transport.tempo = 120.0;
            transport.song_pos_seconds = static_cast<int64_t>(
                std::llround(host.time.samplePos / 44100.0 * static_cast<double>(clap::kTimeFactor)));
            float* clapIns[2] = {clapIn[0].data(), clapIn[1].data()};
            float* clapOuts[2] = {clapOut[0].data(), clapOut[1].data()};
            clapPlugin.process(clapIns, clapOuts, kBlock, playing ? &transport : nullptr);
            for (int c = 0; c < 2; ++c) {
                differences += std::memcmp(out[c].data(), lv2Out[c].data(), kBlock * sizeof(float)) != 0;
                clapDifferences += std::memcmp(out[c].data(), clapOut[c].data(), kBlock * sizeof(float)) != 0;
            }
        }
        EXPECT_EQ(differences, 0u);
        EXPECT_EQ(clapDifferences, 0u);
    }
};

TEST_F(Formats, InitEveryFactoryPresetAndARandomStateSoundTheSame) {
    std::vector<float> init(kParameterCount);
    for (int32_t i = 0; i < kParameterCount; ++i) init[i] = parameterInfo(i).defaultValue;
    expectSameSamples(init, true, "Init");
    expectSameSamples(init, false, "Init");

    auto library = makeRef<PresetLibrary>();
    ASSERT_TRUE(library->loadFile(VARITAP_BUNDLE_DIR "/Contents/Resources/varitap.factory.presets.xml", true));
    int presets = 0;
    for (uint32_t f = 0; f < library->folderCount(); ++f) {
        PresetFolder* folder = library->folderAt(f);
        for (uint32_t p = 0; p < folder->presetCount(); ++p, ++presets) {
            Preset* preset = folder->presetAt(p);
            std::vector<float> values = init;
            for (int32_t i = 0; i < kParameterCount; ++i) {
                if (const PropertyValue* v = preset->findProperty(std::to_string(i))) {
                    values[i] = static_cast<float>(v->getFloat());
                }
            }
            expectSameSamples(values, true, preset->getName());
        }
    }
    EXPECT_GE(presets, 30);

    std::mt19937 random(2024);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::uniform_int_distribution<int> target(kWetDryParameter, kParameterCount - 1);
    std::vector<float> state(kParameterCount);
    for (int32_t i = 0; i < kParameterCount; ++i) {
        const bool isIndex = parameterInfo(i).kind == ParameterInfo::kInteger;
        state[i] = isIndex ? static_cast<float>(target(random)) : unit(random);
    }
    expectSameSamples(state, true, "random");
    expectSameSamples(state, false, "random");
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
// leaves it (DelayEffectTest.ScanLeavesTheConfigurationAlone).
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

    // A host whose instantiation rate means nothing: the sample rate option
    // stands in. The "Init" tap 1 (a "1/4" at 120 BPM) echoes 22050 samples
    // after the impulse at 44100 Hz.
    {
        Lv2Plugin plugin(library, 0.0, kMaxBlock, true, 44100.0f);
        ASSERT_TRUE(plugin);
        plugin.activate();
        std::fill(in[0].begin(), in[0].end(), 0.0f);
        std::fill(in[1].begin(), in[1].end(), 0.0f);
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
    ASSERT_EQ(saved.size(), 2u);
    const std::string key = "urn:brelmo:varitap#";
    ASSERT_EQ(saved.count(key + "programName"), 1u);
    ASSERT_EQ(saved.count(key + "parameters"), 1u);

    Lv2Plugin target(library, 48000.0);
    target.activate();
    target.restore(saved);
    EXPECT_EQ(target.save(), saved);

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
