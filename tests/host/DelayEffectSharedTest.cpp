// DelayEffect linked in-process, for what a host cannot see through the
// record: the process-wide shared objects, the user options read at
// construction, the editor hook, program values re-applied over state
// changed behind the host's back, and time information.
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

#include "../base/TestSupport.h"
#include "FakeHost.h"
#include "host/PluginEditor.h"
#include "host/vst2/Vst2Effect.h"
#include "modulation/ModulatorBase.h"
#include "modulation/ScratchPool.h"
#include "persistence/Preferences.h"
#include "persistence/PresetLibrary.h"
#include "persistence/SystemInfo.h"

namespace varitap::test {
namespace {

using namespace vst;

class DelayEffectShared : public ::testing::Test {
protected:
    FakeHost host;
    TempDir config;  // every test's own configuration folder

    void SetUp() override { setenv("XDG_CONFIG_HOME", config.path().c_str(), 1); }
    void TearDown() override {
        setEditorFactory(nullptr);
        setModulatorSmoothFactor(kDefaultSmoothFactor);
    }

    // An instance made as the entry point makes it (its effClose deletes it
    // the same way).
    using Instance = std::unique_ptr<Vst2Effect>;
    static Instance make() { return std::make_unique<Vst2Effect>(&FakeHost::callback); }
};

// The process-wide shared objects, each with its retain count.
using Singletons = std::vector<std::pair<const void*, int32_t>>;
Singletons singletons() {
    auto entry = [](auto* object) {
        return std::make_pair(static_cast<const void*>(object), object ? object->retainCount() : 0);
    };
    return {entry(ScratchPool::current()), entry(Preferences::current()), entry(SystemInfo::current()),
            entry(PresetLibrary::current())};
}

void setOptions(long resample, long smooth, long factor) {
    Preferences* options = Preferences::acquire(kPreferencesDomain);
    options->setNumber(kOptionDelayTimeResample, resample);
    options->setNumber(kOptionSmoothDelayTimeChanges, smooth);
    options->setNumber(kOptionSmoothFactor, factor);
    options->release();
}

// How many taps have a flag on.
int taps(const std::unique_ptr<Vst2Effect>& effect, bool (FilteredDelayTap::*flag)() const) {
    int on = 0;
    for (int t = 0; t < kTapCount; ++t) on += (effect->core().engine().tap(t).*flag)() ? 1 : 0;
    return on;
}

// Two instances: the shared objects made by the first, shared by the second
// and gone with the last; the user options read at construction; the host's
// time information in the engine's terms.
TEST_F(DelayEffectShared, InstancesShareTheSingletonsReadTheOptionsAndTheHostsTime) {
    setOptions(1, 0, 500);
    const Singletons none = singletons();
    for (const auto& single : none) ASSERT_EQ(single.first, nullptr);
    Instance first = make();
    const Singletons one = singletons();
    for (const auto& single : one) ASSERT_NE(single.first, nullptr);
    EXPECT_EQ(taps(first, &FilteredDelayTap::isResampling), kTapCount);
    EXPECT_EQ(taps(first, &FilteredDelayTap::smoothsDelayChanges), 0);
    EXPECT_EQ(modulatorSmoothFactor(), 500);
    // The editor's Options commands flip every tap (what they store:
    // EditorMenuTest.OptionsAreWrittenAndTakeEffect); the next instance reads them.
    first->core().setSwitchOption(kOptionDelayTimeResample, false);
    first->core().setSwitchOption(kOptionSmoothDelayTimeChanges, true);
    EXPECT_EQ(taps(first, &FilteredDelayTap::isResampling), 0);
    EXPECT_EQ(taps(first, &FilteredDelayTap::smoothsDelayChanges), kTapCount);

    Instance second = make();
    EXPECT_EQ(taps(second, &FilteredDelayTap::smoothsDelayChanges), kTapCount);
    const Singletons two = singletons();
    for (size_t i = 0; i < one.size(); ++i) {
        EXPECT_EQ(two[i].first, one[i].first) << i;
        EXPECT_EQ(two[i].second, 2 * one[i].second) << i;
    }
    // Both instances process with the one pool.
    std::vector<float> in(512, 0.1f), out(512, 0.0f);
    float* i[2] = {in.data(), in.data() + 256};
    float* o[2] = {out.data(), out.data() + 256};
    for (Vst2Effect* effect : {first.get(), second.get()}) effect->getAeffect()->processReplacing(effect->getAeffect(), i, o, 256);

    host.time.tempo = 90.0;
    host.time.samplePos = 4410.0;
    host.time.flags = kVstTempoValid | kVstTransportPlaying;
    const HostTimeInfo* info = second->getTimeInfo(0x440);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->tempo, 90.0);
    EXPECT_EQ(info->samplePos, 4410.0);
    EXPECT_EQ(info->flags, kVstTempoValid | kVstTransportPlaying);
    host.giveTime = false;
    EXPECT_EQ(second->getTimeInfo(0x440), nullptr);
    // Negative and non-finite rates are ignored; 0 is stored.
    AEffect* e = second->getAeffect();
    e->dispatcher(e, effSetSampleRate, 0, 0, nullptr, 48000.0f);
    e->dispatcher(e, effSetSampleRate, 0, 0, nullptr, -1.0f);
    e->dispatcher(e, effSetSampleRate, 0, 0, nullptr, std::numeric_limits<float>::infinity());
    EXPECT_EQ(second->getSampleRate(), 48000.0f);
    EXPECT_EQ(second->core().engine().tap(0).sampleRate(), 48000.0f);
    e->dispatcher(e, effSetSampleRate, 0, 0, nullptr, 0.0f);
    EXPECT_EQ(second->getSampleRate(), 0.0f);

    first.reset();
    EXPECT_EQ(singletons(), one);
    second.reset();
    EXPECT_EQ(singletons(), none);

    // Zero options leave the defaults.
    setOptions(0, 0, 0);
    setModulatorSmoothFactor(kDefaultSmoothFactor);
    first = make();
    EXPECT_EQ(taps(first, &FilteredDelayTap::isResampling) + taps(first, &FilteredDelayTap::smoothsDelayChanges), 0);
    EXPECT_EQ(modulatorSmoothFactor(), kDefaultSmoothFactor);
}

// An editor that records what the effect tells it.
struct RecordingEditor : PluginEditor {
    static inline int alive = 0;
    static inline std::vector<std::pair<int32_t, float>> changes;
    static inline int rebuilds = 0;
    static inline int idles = 0;
    RecordingEditor() { ++alive; }
    ~RecordingEditor() override { --alive; }
    void setParameter(int32_t index, float value) override { changes.emplace_back(index, value); }
    void rebuildRoutingMenus() override { ++rebuilds; }
    void idle() override { ++idles; }
};

TEST_F(DelayEffectShared, ProgramZeroReappliesItsValuesAndTheEditorHookHearsEveryChange) {
    setEditorFactory([](DelayEffect&) -> PluginEditor* { return new RecordingEditor; });
    Instance effect = make();
    AEffect* e = effect->getAeffect();
    EXPECT_EQ(RecordingEditor::alive, 1);
    EXPECT_TRUE(e->flags & effFlagsHasEditor);

    // Programs 1 and -1 do not exist; 0 re-applies the stored values over
    // what was changed behind the host's back, and the editor hears them.
    effect->core().engine().tap(0).setVolume(0.1f);
    effect->core().engine().setWetDry(0.9f);
    effect->core().engine().modulator(2).setIndex(33);
    RecordingEditor::changes.clear();
    e->dispatcher(e, effSetProgram, 0, 1, nullptr, 0.0f);
    e->dispatcher(e, effSetProgram, 0, -1, nullptr, 0.0f);
    EXPECT_FLOAT_EQ(effect->core().engine().tap(0).volume(), 0.1f);
    EXPECT_TRUE(RecordingEditor::changes.empty());
    EXPECT_EQ(e->dispatcher(e, effGetProgram, 0, 0, nullptr, 0.0f), 0);
    e->dispatcher(e, effSetProgram, 0, 0, nullptr, 0.0f);
    EXPECT_FLOAT_EQ(effect->core().engine().tap(0).volume(), 1.0f);
    EXPECT_FLOAT_EQ(effect->core().engine().wetDry(), 0.563636f);
    EXPECT_EQ(effect->core().engine().modulator(2).getIndex(), 0);
    ASSERT_EQ(RecordingEditor::changes.size(), 241u);
    EXPECT_EQ(RecordingEditor::changes.front().first, 0);
    EXPECT_EQ(RecordingEditor::changes.back().first, 240);

    // Every set reaches the editor, every accepted one the program.
    RecordingEditor::changes.clear();
    e->setParameter(e, 20, 0.3f);
    e->setParameter(e, 241, 0.4f);
    e->setParameter(e, -1, 0.5f);
    std::vector<std::pair<int32_t, float>> expected = {{20, 0.3f}, {241, 0.4f}};
    EXPECT_EQ(RecordingEditor::changes, expected);
    e->setParameter(e, 92, 21.7f);
    EXPECT_FLOAT_EQ(effect->core().program().values[92], 21.7f);

    Arrangement two(kSpeakerArrStereo, 2), many(kSpeakerArrStereo, 30);
    e->dispatcher(e, effSetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(two.get()), many.get(), 0);
    EXPECT_EQ(RecordingEditor::rebuilds, 0);  // refused: no rebuild
    e->dispatcher(e, effSetSpeakerArrangement, 0, reinterpret_cast<VstIntPtr>(two.get()), two.get(), 0);
    EXPECT_EQ(RecordingEditor::rebuilds, 1);

    char window[8] = {};
    EXPECT_EQ(e->dispatcher(e, effEditOpen, 0, 0, window, 0.0f), 1);
    EXPECT_TRUE(effect->getEditor()->isOpen());
    e->dispatcher(e, effEditIdle, 0, 0, nullptr, 0.0f);
    EXPECT_EQ(RecordingEditor::idles, 1);
    e->dispatcher(e, effEditClose, 0, 0, nullptr, 0.0f);
    EXPECT_FALSE(effect->getEditor()->isOpen());

    effect.reset();
    EXPECT_EQ(RecordingEditor::alive, 0);
}

// An arrangement the instance cannot copy (no memory) is refused: the one
// before stays and the host hears 0.
TEST_F(DelayEffectShared, AnArrangementThatCannotBeCopiedIsRefused) {
    struct FailingCopies : Vst2Effect {
        using Vst2Effect::Vst2Effect;
        bool matchArrangement(VstSpeakerArrangement** to, const VstSpeakerArrangement* from) override {
            return !fail && Vst2Effect::matchArrangement(to, from);
        }
        bool fail = false;
    };
    auto effect = std::make_unique<FailingCopies>(&FakeHost::callback);
    Arrangement mono(kSpeakerArrMono, 1), stereo(kSpeakerArrStereo, 2);
    AEffect* e = effect->getAeffect();
    EXPECT_EQ(e->dispatcher(e, effSetSpeakerArrangement, 0, VstIntPtr(mono.get()), stereo.get(), 0.0f), 1);
    effect->fail = true;
    EXPECT_EQ(e->dispatcher(e, effSetSpeakerArrangement, 0, VstIntPtr(stereo.get()), mono.get(), 0.0f), 0);
    EXPECT_EQ(effect->core().inputChannels(), 1);
    EXPECT_EQ(effect->core().outputChannels(), 2);
}

}  // namespace
}  // namespace varitap::test
