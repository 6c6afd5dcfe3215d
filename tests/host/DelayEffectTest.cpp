// DelayEffect through the built bundle: channel counts by host, speaker
// arrangements, the routing clamp, the "Init" program, echoes and suspend;
// through the CLAP module, choices typed by name and a state read in pieces.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "FakeHost.h"
#include "tools/render/ClapHost.h"

namespace varitap::test {
namespace {

using namespace vst;

class DelayEffectTest : public PluginTest {
protected:
    static void arrangements(Plugin& plugin, VstSpeakerArrangement** in, VstSpeakerArrangement** out) {
        *in = *out = nullptr;
        ASSERT_EQ(plugin.dispatch(effGetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(in), out), 1);
        ASSERT_NE(*in, nullptr);
        ASSERT_NE(*out, nullptr);
    }
    static VstIntPtr offer(Plugin& plugin, Arrangement& in, Arrangement& out) {
        return plugin.dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(in.get()),
                               out.get());
    }
};

TEST_F(DelayEffectTest, ChannelCountsDependOnHostVendorVersionAndPins) {
    // {vendor, version, connected inputs and outputs, expected counts}
    const struct { const char* vendor; VstIntPtr version; int connectedIn, connectedOut, expectIn, expectOut; } cases[] = {
        {"Varitap Test Host", 2400, 64, 64, 2, 2},  // any other host: stereo
        {"", 2400, 64, 64, 2, 2},                   // no vendor answer
        {"Steinberg", 2200, 64, 64, 2, 2},          // too old
        {"Steinberg ", 2300, 64, 64, 2, 2},         // not exactly "Steinberg"
        {"Steinberg", 2300, 6, 64, 6, 20},          // first unconnected input is 6
        {"Steinberg", 2300, 64, 3, 20, 3},
        {"Steinberg", 2400, 0, 1, 0, 1},
        {"Steinberg", 2300, 20, 20, 20, 20},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.vendor) + " " + std::to_string(c.version));
        host.vendor = c.vendor;
        host.version = c.version;
        host.connectedInputs = c.connectedIn;
        host.connectedOutputs = c.connectedOut;
        Plugin plugin(library, host);
        ASSERT_TRUE(plugin);
        VstSpeakerArrangement *in, *out;
        arrangements(plugin, &in, &out);
        // The record's counts, then both arrangements': counts and types.
        EXPECT_EQ(std::vector<int>({plugin.effect()->numInputs, plugin.effect()->numOutputs, in->numChannels,
                                    out->numChannels, in->type, out->type}),
                  std::vector<int>({c.expectIn, c.expectOut, c.expectIn, c.expectOut, kSpeakerArrUserDefined,
                                    kSpeakerArrUserDefined}));
    }
}

TEST_F(DelayEffectTest, ArrangementsOverTwentyChannelsAreCutToTwentyAndRefused) {
    // A host's own record is copied, speakers included.
    Arrangement six(kSpeakerArrMono + 8, 6), four(kSpeakerArrStereo, 4);
    six.get()->speakers[5].azimuth = 0.75f;
    EXPECT_EQ(offer(plugin, six, four), 1);
    VstSpeakerArrangement *in, *out;
    arrangements(plugin, &in, &out);
    EXPECT_NE(in, six.get());
    EXPECT_EQ(std::vector<int>({in->numChannels, in->type, out->numChannels}), std::vector<int>({6, kSpeakerArrMono + 8, 4}));
    EXPECT_EQ(in->speakers[5].azimuth, 0.75f);

    // 24 outputs: refused, the output becomes 20 user-defined channels.
    Arrangement two(kSpeakerArrStereo, 2), many(kSpeakerArrStereo, 24);
    EXPECT_EQ(offer(plugin, two, many), 0);
    arrangements(plugin, &in, &out);
    EXPECT_EQ(std::vector<int>({in->numChannels, out->numChannels, out->type}), std::vector<int>({2, 20, kSpeakerArrUserDefined}));
    // The record's counts stay as the host first saw them.
    EXPECT_EQ(std::pair(plugin.effect()->numInputs, plugin.effect()->numOutputs), std::pair(2, 2));

    // The output side really has 20 wet buses, though the host's arrays stay
    // the record's two: tap 1 from In 1 to Out 20, tap 2 from Out 20's bus
    // to Out 1.
    plugin.set(0, 1.5f / 44);    // In 1
    plugin.set(10, 20.5f / 24);  // Out 20
    plugin.set(1, 40.5f / 44);   // Out 20's bus
    plugin.set(11, 1.5f / 24);   // Out 1
    plugin.set(20, 0.0f);        // all wet
    for (int tap : {0, 1}) {
        plugin.set(21 + 7 * tap + 3, 0.0f);  // free delay
        plugin.set(21 + 7 * tap + 2, 0.0f);  // no feedback
    }
    plugin.set(21, 100.5f / 56000);
    plugin.set(28, 50.5f / 56000);
    Plugin::Buffers input(2, std::vector<float>(512, 0.0f)), output = input;
    plugin.processReplacing(input, output, 512);  // the volume ramps settle
    input[0][0] = 1.0f;
    plugin.processReplacing(input, output, 512);
    EXPECT_FLOAT_EQ(output[0][150], 1.0f);
    EXPECT_EQ(output[0][100], 0.0f);

    // Missing arrangements change nothing.
    EXPECT_EQ(plugin.dispatch(effSetSpeakerArrangement, 0, 0, out), 0);
    EXPECT_EQ(plugin.dispatch(effSetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(in), nullptr), 0);
    Arrangement negative(kSpeakerArrStereo, 2);
    negative.get()->numChannels = -3;
    EXPECT_EQ(offer(plugin, negative, two), 0);
    arrangements(plugin, &in, &out);
    EXPECT_EQ(std::pair(in->numChannels, out->numChannels), std::pair(2, 20));
}

// Whatever arrangement the host offers, a block touches only the arrays the
// record declares (two and two here; FakeHost ends each pointer array at a
// page nobody may touch), and a replacing block writes every one of them:
// silence where no wet bus feeds an output.
TEST_F(DelayEffectTest, BlocksKeepToTheArraysTheRecordDeclares) {
    ASSERT_EQ(std::pair(plugin.effect()->numInputs, plugin.effect()->numOutputs), std::pair(2, 2));
    plugin.set(20, 0.25f);
    const std::pair<int, int> offers[] = {{3, 3}, {8, 8}, {20, 20}, {2, 1}, {1, 1}, {1, 20}, {2, 2}};
    for (const auto& [inputs, outputs] : offers) {
        SCOPED_TRACE(testing::Message() << inputs << " in, " << outputs << " out");
        Arrangement in(kSpeakerArrUserDefined, inputs), out(kSpeakerArrUserDefined, outputs);
        ASSERT_EQ(offer(plugin, in, out), 1);
        Plugin::Buffers input(2, std::vector<float>(512, 0.5f)), output(2, std::vector<float>(512, 7.0f));
        Plugin::Buffers added = output;
        plugin.processReplacing(input, output, 512);
        plugin.processAccumulating(input, added, 512);
        // The dry share of each output whose input is read, else nothing.
        EXPECT_EQ(output[0][0], 0.25f * 0.5f);
        for (float x : output[1]) ASSERT_EQ(x, outputs > 1 && inputs > 1 ? 0.25f * 0.5f : 0.0f);
        EXPECT_EQ(added[1][0], 7.0f);
    }
}

TEST_F(DelayEffectTest, RoutingClampKeepsItsOwnComparisons) {
    auto in = [](int s) { return (s + 0.5f) / 44; };
    auto outv = [](int s) { return (s + 0.5f) / 24; };
    // Inputs: 0 untouched, 2 fits, 5 > nIn -> In 2, 20 falls to the second
    // test -> Out 2, 21 (Out 1) compared with nOut -> Out 2, 40 and 41 never.
    const float inputs[10] = {in(0), in(2), in(5), in(19), in(20), in(21), in(39), in(40), in(41), in(43)};
    // Outputs: 2 fits, 5 -> Out 2, 19 -> Out 2, 20 and Intern 1 never.
    const float outputs[10] = {outv(0), outv(2), outv(5), outv(19), outv(20), outv(21), outv(23), outv(1), outv(3), outv(3)};
    for (int t = 0; t < 10; ++t) {
        plugin.set(t, inputs[t]);
        plugin.set(10 + t, outputs[t]);
    }
    host.automated.clear();
    Arrangement two(kSpeakerArrStereo, 2), twoOut(kSpeakerArrStereo, 2);
    ASSERT_EQ(offer(plugin, two, twoOut), 1);

    const float expectIn[10] = {inputs[0], inputs[1], 2.0f / 44, 2.0f / 44, 22.0f / 44,
                                22.0f / 44, 22.0f / 44, inputs[7], inputs[8], inputs[9]};
    const float expectOut[10] = {outputs[0], outputs[1], 2.0f / 24, 2.0f / 24, outputs[4],
                                 outputs[5], outputs[6], outputs[7], 2.0f / 24, 2.0f / 24};
    for (int t = 0; t < 10; ++t) {
        EXPECT_FLOAT_EQ(plugin.get(t), expectIn[t]) << "input of tap " << t;
        EXPECT_FLOAT_EQ(plugin.get(10 + t), expectOut[t]) << "output of tap " << t;
    }
    // Every move was reported to the host as automation, in index order.
    std::vector<std::pair<int32_t, float>> expected = {
        {2, 2.0f / 44},  {3, 2.0f / 44},  {4, 22.0f / 44}, {5, 22.0f / 44}, {6, 22.0f / 44},
        {12, 2.0f / 24}, {13, 2.0f / 24}, {18, 2.0f / 24}, {19, 2.0f / 24}};
    EXPECT_EQ(host.automated, expected);

    // A refused configuration skips the clamp.
    plugin.set(2, in(5));
    host.automated.clear();
    Arrangement many(kSpeakerArrStereo, 21);
    EXPECT_EQ(offer(plugin, many, twoOut), 0);
    EXPECT_TRUE(host.automated.empty());
    EXPECT_FLOAT_EQ(plugin.get(2), in(5));
}

TEST_F(DelayEffectTest, InitProgramAndProgramCalls) {
    const std::pair<int, float> defaults[] = {
        {0, 0.022728f}, {1, 0.045455f}, {10, 0.041667f}, {11, 0.083334f},
        {20, 0.563636f}, {21, 0.568268f}, {22, 1.0f}, {23, 0.84217f},
        {24, 1.0f}, {28, 0.460661f}, {29, 1.0f}, {30, 0.83746f}, {31, 1.0f}};
    std::map<int, float> expected(std::begin(defaults), std::end(defaults));
    for (int32_t i = 0; i < 241; ++i) {
        // A tap's "Delay" reads back whole samples of its 56000-sample line.
        const bool delay = i >= 21 && i < 91 && (i - 21) % 7 == 0;
        if (delay)
            EXPECT_NEAR(plugin.get(i), expected[i], 1.0 / 56000) << "parameter " << i;
        else
            EXPECT_FLOAT_EQ(plugin.get(i), expected[i]) << "parameter " << i;
    }
    EXPECT_EQ(plugin.display(24), "On");
    EXPECT_EQ(plugin.display(21), "1/4");  // truncate(0.568268 * 24) = 13
    EXPECT_EQ(plugin.label(21), "Tempo");

    EXPECT_EQ(plugin.programName(), "Init");
    char name[] = "Dub Echo";
    plugin.dispatch(effSetProgramName, 0, 0, name);
    EXPECT_EQ(plugin.programName(), "Dub Echo");
    // Long names are cut at what hosts allocate for a program name.
    std::string longName(300, 'x');
    plugin.dispatch(effSetProgramName, 0, 0, longName.data());
    EXPECT_EQ(plugin.programName(), std::string(kVstMaxProgNameLen, 'x'));
}

// Impulse responses through the Init program at 44.1 kHz: tap 1 (input 1 to
// output 1) is a synchronised "1/4", tap 2 (input 2 to output 2) a "1/8D"
// with feedback, both at the host's tempo; then a suspend in the middle.
TEST_F(DelayEffectTest, InitProgramEchoesFollowTheHostTempoUntilASuspend) {
    const float mix = 0.563636f;
    // The first frame of each run of frames louder than 0.02: one per echo.
    auto onsets = [](const std::vector<float>& samples) {
        std::vector<size_t> found;
        for (size_t i = 0; i < samples.size(); ++i)
            if (std::fabs(samples[i]) > 0.02f && (found.empty() || i - found.back() > 100)) found.push_back(i);
        return found;
    };
    auto peakNear = [](const std::vector<float>& samples, size_t at) {
        return std::max(std::fabs(samples[at]), std::fabs(samples[at + 1]));
    };
    for (double tempo : {120.0, 100.0}) {
        SCOPED_TRACE(tempo);
        host.time.tempo = tempo;
        Plugin plugin(library, host);
        ASSERT_TRUE(plugin);
        plugin.dispatch(effSetSampleRate, 0, 0, nullptr, 44100.0f);
        plugin.dispatch(effMainsChanged, 0, 1);
        Plugin::Buffers in(2, std::vector<float>(11025, 0.0f)), out = in, heard(2);
        in[0][0] = in[1][0] = 1.0f;
        for (int block = 0; block < 4; ++block) {
            plugin.processReplacing(in, out, 11025);
            for (int c = 0; c < 2; ++c) heard[c].insert(heard[c].end(), out[c].begin(), out[c].end());
            in[0][0] = in[1][0] = 0.0f;
        }
        const size_t beat = static_cast<size_t>(60.0 / tempo * 44100.0);
        const size_t dotted = static_cast<size_t>(static_cast<float>(60.0 / tempo * 44100.0) * 0.75f);
        // The dry share, then the wet share a beat later and nothing else.
        EXPECT_FLOAT_EQ(heard[0][0], mix);
        EXPECT_FLOAT_EQ(heard[0][beat], 1.0f - mix);
        float elsewhere = 0.0f;
        for (size_t i = 1; i < heard[0].size(); ++i)
            if (i != beat) elsewhere = std::max(elsewhere, std::fabs(heard[0][i]));
        EXPECT_LT(elsewhere, 1e-6f);
        // Every dotted eighth an echo, each weaker.
        EXPECT_EQ(onsets(heard[1]), (std::vector<size_t>{0, dotted, 2 * dotted}));
        EXPECT_LT(peakNear(heard[1], 2 * dotted), peakNear(heard[1], dotted));

        // A suspend clears the lines: after it, the echoes of an impulse
        // (and of the first one's feedback) never come.
        in[0][0] = in[1][0] = 1.0f;
        plugin.processReplacing(in, out, 11025);
        in[0][0] = in[1][0] = 0.0f;
        plugin.dispatch(effMainsChanged, 0, 0);
        plugin.dispatch(effMainsChanged, 0, 1);
        for (int block = 0; block < 4; ++block) {
            plugin.processReplacing(in, out, 11025);
            EXPECT_EQ(out, Plugin::Buffers(2, std::vector<float>(11025, 0.0f))) << "block " << block;
        }
    }
    // The host was asked for tempo and the automation-writing flag.
    ASSERT_FALSE(host.timeRequests.empty());
    EXPECT_EQ(host.timeRequests.back(), kVstTempoValid | kVstAutomationWriting);
}

// The CLAP module as a host drives it: routing choices typed by name where
// the host's outputs end and the internal buses begin, and a saved state
// that the host hands back one byte per read.
TEST(ClapEffect, RoutingChoicesAreReadByNameAndAStateMovesOneByteAtATime) {
    using namespace clap;
    render::ClapModule module;
    render::ClapHost host;
    std::string error;
    ASSERT_TRUE(module.open(VARITAP_CLAP_MODULE, error)) << error;
    const clap_plugin* plugin = module.factory()->create_plugin(module.factory(), &host.record, "brelmo.varitap");
    ASSERT_TRUE(plugin && plugin->init(plugin));
    const auto* params = static_cast<const clap_plugin_params*>(plugin->get_extension(plugin, kExtParams));
    const auto* state = static_cast<const clap_plugin_state*>(plugin->get_extension(plugin, kExtState));
    // Tap 1's input and output selectors.
    const struct { clap_id id; const char* label; float value; } choices[] = {
        {0, "Out 20", 40.0f / 44}, {0, "Intern 1", 41.0f / 44}, {10, "Out 20", 20.0f / 24}, {10, "Intern 1", 21.0f / 24}};
    for (const auto& c : choices) {
        double value = -1.0;
        EXPECT_TRUE(params->text_to_value(plugin, c.id, c.label, &value) && value == c.value) << c.id << " " << c.label;
    }
    // Saved at wet/dry 0.25, moved to 0.75, loaded back, through streams
    // that take and give one byte per call.
    struct Bytes { std::string data; size_t read = 0; } bytes;
    const clap_ostream out{&bytes, [](const clap_ostream* s, const void* data, uint64_t) -> int64_t {
        static_cast<Bytes*>(s->ctx)->data.push_back(*static_cast<const char*>(data));
        return 1;
    }};
    const clap_istream in{&bytes, [](const clap_istream* s, void* data, uint64_t size) -> int64_t {
        auto* self = static_cast<Bytes*>(s->ctx);
        if (size == 0 || self->read == self->data.size()) return 0;
        *static_cast<char*>(data) = self->data[self->read++];
        return 1;
    }};
    render::ClapInputEvents saved, moved;
    render::ClapOutputEvents ignored;
    saved.add(20, 0.25);
    moved.add(20, 0.75);
    params->flush(plugin, &saved.record, &ignored.record);
    EXPECT_TRUE(state->save(plugin, &out));
    params->flush(plugin, &moved.record, &ignored.record);
    EXPECT_TRUE(state->load(plugin, &in));
    double wetDry = 0.0;
    EXPECT_TRUE(params->get_value(plugin, 20, &wetDry) && wetDry == 0.25);
    plugin->destroy(plugin);
}

}  // namespace
}  // namespace varitap::test
