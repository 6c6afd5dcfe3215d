#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "BridgeTest.h"
#include "engine/ParameterLayout.h"
#include "persistence/PresetLibrary.h"
#include "persistence/PresetParameters.h"

namespace varitap {
namespace {

using test::BridgeTest;

std::vector<float> parameters(DelayEffect& effect) {
    std::vector<float> values;
    for (int32_t i = 0; i < kParameterCount; ++i) values.push_back(effect.getParameter(i));
    return values;
}

// A state that touches every parameter, with routing that the channel
// clamp leaves alone (inputs 1..2 and the internal buses, outputs likewise)
// and modulators switched off so that nothing moves.
void setVariedState(DelayEffect& effect) {
    std::mt19937 random(1234);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    const int inputs[] = {0, 1, 2, 41, 42, 43, 44};
    const int outputs[] = {0, 1, 2, 21, 22, 23, 24};
    for (int t = 0; t < kTapCount; ++t) {
        effect.setParameter(kTapInputParameterBase + t, (inputs[t % 7] + 0.5f) / 44.0f);
        effect.setParameter(kTapOutputParameterBase + t, (outputs[(t + 3) % 7] + 0.5f) / 24.0f);
    }
    effect.setParameter(kWetDryParameter, 0.37f);
    for (int i = kTapParameterBase; i < kModulatorParameterBase; ++i) effect.setParameter(i, unit(random));
    for (int m = 0; m < kModulatorCount; ++m) {
        for (int s = 0; s < kModulatorParameterCount; ++s) {
            float v = unit(random);
            if (s == kModulatorIndex) v = static_cast<float>(20 + 22 * m + s);
            if (s == kModulatorPower) v = 0.0f;
            effect.setParameter(modulatorParameterIndex(m, s), v);
        }
    }
}

RefPtr<Preset> presetWith(std::initializer_list<std::pair<const char*, double>> floats, bool version1,
                          const char* name = "Test") {
    auto preset = makeRef<Preset>(name);
    if (version1) test::addValues(preset.get(), {PropertyValue::makeLong("Version", 1)});
    for (const auto& [key, number] : floats) test::addValues(preset.get(), {PropertyValue::makeFloat(key, number)});
    return preset;
}

TEST_F(BridgeTest, CapturedStateReappearsInAFreshInstance) {
    auto source = makeEffect();
    setVariedState(*source);
    RefPtr<Preset> preset = RefPtr<Preset>::adopt(source->createPresetFromState("Everything"));
    ASSERT_TRUE(preset);
    EXPECT_EQ(preset->getName(), "Everything");
    const PropertyList& properties = preset->properties();
    ASSERT_EQ(properties.count(), 3u + kParameterCount);
    const std::pair<const char*, long> header[] = {{"Version", 1}, {"NumInputs", 2}, {"NumOutputs", 2}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(properties.at(i)->key(), header[i].first);
        EXPECT_EQ(properties.at(i)->getLong(), header[i].second);
    }
    for (int i = 0; i < kParameterCount; ++i) {
        EXPECT_EQ(properties.at(3 + i)->key(), std::to_string(i));
        EXPECT_EQ(properties.at(3 + i)->type(), PropertyType::Float);
    }
    auto target = makeEffect();
    target->applyPreset(preset.get());
    EXPECT_EQ(parameters(*target), parameters(*source));
}

// Without "Version" (or with a "Version" of 0), routing and modulator
// targets are read in the first layout and converted; with any other, values
// are taken as stored, and routing is then clamped to the instance's two
// inputs and outputs.
TEST_F(BridgeTest, StoredValuesAreConvertedOrClampedBeforeTheyApply) {
    // The "Version" entry of each preset; a float's cell read as a number is
    // not 0, so it does not mean the first layout.
    enum Version { kNone, kOne, kZero, kNine, kFloat };
    struct Row {
        Version version;
        const char* key;
        double stored;
        float applied;
    };
    const Row rows[] = {
        {kNone, "0", 0.5, 22.0f / 44.0f},   // old Out 2 -> selector 22
        {kNone, "1", 0.7, 41.0f / 44.0f},   // old bus 1 -> Intern 1 (41)
        {kNone, "2", 0.3, 2.0f / 44.0f},    // old In 2 stays 2
        {kNone, "3", 1.0e30, 1.0f},         // far out: limited to 1.0
        {kNone, "10", 0.6, 21.0f / 24.0f},  // old bus 1 -> Intern 1 (21)
        {kNone, "11", 0.2, 1.0f / 24.0f},   // old Out 2 stays 1
        {kNone, "92", 5.0, 20.0f},          // modulator 1 Index 5 -> 20
        {kNone, "107", 25.0, 25.0f},        // modulator 2 Index 25 stays
        {kNone, "122", 19.0, 20.0f},        // modulator 3 Index 19 -> 20
        {kNone, "137", 19.5, 19.0f},        // modulator 4 Index 19.5 stays (read as 19)
        {kNone, "20", 0.8, 0.8f},           // anything else as it is
        // The first layout would have turned these three into 20, 43 / 44 and 23 / 24.
        {kOne, "92", 5.0, 5.0f},
        {kOne, "1", 0.95, 0.95f},
        {kOne, "10", 0.9, 0.9f},
        {kOne, "0", 21.5 / 44, 22.0f / 44.0f},  // a tap reading Out 1 (21) reads Out 2
        {kOne, "2", 5.5 / 44, 2.0f / 44.0f},    // In 5 -> In 2
        {kOne, "11", 7.5 / 24, 2.0f / 24.0f},   // Out 7 -> Out 2
        {kZero, "92", 5.0, 20.0f},
        {kNine, "92", 5.0, 5.0f},
        {kFloat, "92", 5.0, 5.0f},
    };
    auto effect = makeEffect();
    for (const Version version : {kNone, kOne, kZero, kNine, kFloat}) {
        auto preset = makeRef<Preset>("Test");
        if (version == kFloat) test::addValues(preset.get(), {PropertyValue::makeFloat("Version", 0.0001)});
        if (version != kNone && version != kFloat)
            test::addValues(preset.get(), {PropertyValue::makeLong("Version", version == kOne ? 1 : version == kZero ? 0 : 9)});
        for (const Row& row : rows)
            if (row.version == version) test::addValues(preset.get(), {PropertyValue::makeFloat(row.key, row.stored)});
        effect->applyPreset(preset.get());
        for (const Row& row : rows) {
            if (row.version != version) continue;
            EXPECT_EQ(effect->getParameter(std::stoi(row.key)), row.applied) << row.key << " " << version;
        }
    }
}

TEST_F(BridgeTest, OnlyKeysThatNameAParameterAreApplied) {
    auto effect = makeEffect();
    setVariedState(*effect);
    const std::vector<float> before = parameters(*effect);
    host_.automated.clear();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    RefPtr<Preset> preset = presetWith({{"-1", 0.9},
                                        {"241", 0.9},
                                        {"300", 0.9},
                                        {"99999999999", 0.9},
                                        {"abc", 0.9},
                                        {"", 0.9},
                                        {"26abc", 0.25},  // read as 26, as "%d" does
                                        {" 21", 0.125},   // blanks before the number
                                        {"22", nan}},     // not a number: skipped
                                       true);
    test::addValues(preset.get(), {PropertyValue::makeString("23", "0.5")});  // a text reads as 0
    effect->applyPreset(preset.get());
    // A plug-in with fewer parameters takes only the keys below its count.
    EXPECT_EQ(presetParameterValues(*preset, 22).size(), 1u);
    std::vector<float> after = parameters(*effect);
    EXPECT_EQ(after[26], 0.25f);
    EXPECT_NEAR(after[21], 0.125f, 1e-4);  // the tap keeps whole samples
    EXPECT_EQ(after[23], 0.0f);
    for (const int applied : {21, 23, 26}) after[applied] = before[applied];
    EXPECT_EQ(after, before);
    // The host heard exactly the three applied values.
    std::vector<int32_t> heard;
    for (const auto& [index, value] : host_.automated) heard.push_back(index);
    EXPECT_EQ(heard, (std::vector<int32_t>{26, 21, 23}));
}

TEST_F(BridgeTest, ProgramNameReachesTheHostAndUserPresetsAreRemembered) {
    auto effect = makeEffect();
    EXPECT_EQ(programName(effect), "Init");
    const int updates = host_.updateDisplayCount;
    RefPtr<Preset> captured = RefPtr<Preset>::adopt(effect->createPresetFromState("My Sound"));
    EXPECT_EQ(programName(effect), "My Sound");
    EXPECT_GT(host_.updateDisplayCount, updates);
    EXPECT_EQ(effect->lastUserPreset.get(), nullptr);  // capturing is not applying

    // A factory preset: applied and named, but not remembered.
    auto factory = makeRef<PresetFolder>("Factory", kFactory);
    RefPtr<Preset> factoryPreset = presetWith({{"20", 0.25}}, true, "Factory Sound");
    factory->addPreset(factoryPreset.get());
    effect->applyPreset(factoryPreset.get());
    EXPECT_EQ(effect->getParameter(20), 0.25f);
    EXPECT_EQ(programName(effect), "Factory Sound");
    EXPECT_EQ(effect->lastUserPreset.get(), nullptr);

    RefPtr<Preset> user = presetWith({{"20", 0.75}}, true, std::string(300, 'n').c_str());
    const int beforeApply = host_.updateDisplayCount;
    effect->applyPreset(user.get());
    EXPECT_EQ(effect->lastUserPreset.get(), user.get());
    // The program keeps at most 255 characters; the host reads its own length.
    EXPECT_EQ(std::string(effect->program().name), std::string(255, 'n'));
    EXPECT_EQ(programName(effect).substr(0, 8), "nnnnnnnn");
    EXPECT_GT(host_.updateDisplayCount, beforeApply);

    effect->applyPreset(factoryPreset.get());
    EXPECT_EQ(effect->lastUserPreset.get(), user.get());  // still the user's
    effect->applyPreset(nullptr);                   // nothing happens
    EXPECT_EQ(programName(effect), "Factory Sound");
}

// Sharing itself: DelayEffectShared.TwoInstancesShareTheSingletonsUntilTheLastCloses.
TEST_F(BridgeTest, EachClosingInstanceSavesTheSharedLibraryAndANewOneReadsIt) {
    auto first = makeEffect();
    auto second = makeEffect();
    RefPtr<Preset> preset = RefPtr<Preset>::adopt(first->createPresetFromState("Shared"));
    PresetLibrary::current()->addFolder("Session")->addPreset(preset.get());
    second.reset();  // the first closing instance writes the file
    auto saved = makeRef<PresetLibrary>();
    ASSERT_TRUE(saved->loadFile(config_ / "brelmo.varitap.presets.xml", false));
    ASSERT_EQ(saved->folderCount(), 1u);
    ASSERT_EQ(saved->folderAt(0)->presetCount(), 1u);
    EXPECT_EQ(saved->folderAt(0)->presetAt(0)->getName(), "Shared");  // its entries: CapturedStateReappearsInAFreshInstance

    PresetLibrary::current()->addFolder("Later");
    first.reset();  // so does the last
    auto third = makeEffect();
    ASSERT_NE(PresetLibrary::current(), nullptr);
    EXPECT_EQ(PresetLibrary::current()->folderCount(), 2u);
}

}  // namespace
}  // namespace varitap
