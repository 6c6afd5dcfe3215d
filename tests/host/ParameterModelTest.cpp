// The 241 parameters as the host reads them through the bundle: names,
// displays and labels across the whole layout, the modulators' deliberate
// oddities, and the guards around the layout.
#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <set>
#include <string>

#include "FakeHost.h"

namespace varitap::test {
namespace {

using namespace vst;

constexpr const char* kUntouched = Plugin::kUntouched;

class ParameterModelTest : public ::testing::Test {
protected:
    BundleLibrary library;
    FakeHost host;
    std::unique_ptr<Plugin> plugin;

    void SetUp() override {
        ASSERT_TRUE(library.loaded());
        plugin = std::make_unique<Plugin>(library, host);
        ASSERT_TRUE(*plugin);
    }
};

TEST_F(ParameterModelTest, NamesFollowTheLayout) {
    Plugin& p = *plugin;
    EXPECT_EQ(p.name(0), "#1 Input Channel");
    EXPECT_EQ(p.name(9), "#10 Input Channel");
    EXPECT_EQ(p.name(10), "#1 Output Channel");
    EXPECT_EQ(p.name(19), "#10 Output Channel");
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
    // Every written name inside the layout is different.
    std::set<std::string> names;
    int written = 0;
    for (int32_t i = 0; i < 241; ++i) {
        std::string n = p.name(i);
        if (n == kUntouched) continue;
        ++written;
        names.insert(n);
        EXPECT_LE(n.size(), 31u);
    }
    EXPECT_EQ(written, 241 - 80);
    EXPECT_EQ(names.size(), static_cast<size_t>(written));
}

TEST_F(ParameterModelTest, ChannelSelectorsShowSevenPlaceNumbers) {
    Plugin& p = *plugin;
    p.set(2, 0.5f);
    EXPECT_EQ(p.display(2), "     22");
    p.set(0, 1.0f);
    EXPECT_EQ(p.display(0), "     44");  // Intern 4
    p.set(0, 0.99f);
    EXPECT_EQ(p.display(0), "     43");
    p.set(9, 0.0f);
    EXPECT_EQ(p.display(9), "      0");
    p.set(10, 1.0f);
    EXPECT_EQ(p.display(10), "     24");
    p.set(19, 0.5f);
    EXPECT_EQ(p.display(19), "     12");
    EXPECT_FLOAT_EQ(p.get(19), 0.5f);
    // Routing and the mix have no label.
    for (int32_t i : {0, 10, 20}) EXPECT_EQ(p.label(i), kUntouched) << i;
    p.set(20, 0.25f);
    EXPECT_EQ(p.display(20), "0.250000");
    EXPECT_FLOAT_EQ(p.get(20), 0.25f);
}

TEST_F(ParameterModelTest, TapTextsComeFromTheTaps) {
    Plugin& p = *plugin;
    const int tap3 = 21 + 2 * 7;
    // "Init" leaves tap 3 free at length 0; its full 56000-sample line is
    // 1269.8 ms, cut to "1269".
    EXPECT_EQ(p.display(tap3), "0.0");
    p.set(tap3, 1.0f);
    EXPECT_EQ(p.display(tap3), "1269");
    EXPECT_EQ(p.label(tap3), "Samples");
    EXPECT_FLOAT_EQ(p.get(tap3), 1.0f);
    p.set(tap3, 0.5f);
    EXPECT_FLOAT_EQ(p.get(tap3), 0.5f);  // 28000 samples
    p.set(tap3 + 3, 1.0f);
    EXPECT_EQ(p.label(tap3), "Tempo");
    p.set(tap3, 0.0f);
    EXPECT_EQ(p.display(tap3), "1/256");
    // Volume 0 in decibels.
    p.set(tap3 + 1, 0.0f);
    EXPECT_EQ(p.display(tap3 + 1), "-oo");
    // Filter type names; cutoff and resonance show nothing, filter rows have
    // no label.
    p.set(tap3 + 4, 0.0f);
    EXPECT_EQ(p.display(tap3 + 4), "***");
    p.set(tap3 + 4, 0.5f);
    EXPECT_EQ(p.display(tap3 + 4), "LowPass");
    EXPECT_EQ(p.display(tap3 + 5), kUntouched);
    EXPECT_EQ(p.display(tap3 + 6), kUntouched);
    EXPECT_EQ(p.label(tap3 + 4), kUntouched);
}

TEST_F(ParameterModelTest, ModulatorRowsKeepTheirOddities) {
    Plugin& p = *plugin;
    const int m1 = 91;
    // "Index" carries a raw parameter number and shows its name.
    p.set(m1 + 1, 21.7f);
    EXPECT_FLOAT_EQ(p.get(m1 + 1), 21.0f);
    EXPECT_EQ(p.display(m1 + 1), "#1: Delay");
    p.set(m1 + 1, 20.0f);
    EXPECT_EQ(p.display(m1 + 1), "Wet/Dry Mix Volume");
    // "Power" shows the sync flag, not the power.
    p.set(m1 + 5, 1.0f);
    p.set(m1 + 6, 0.0f);
    EXPECT_EQ(p.display(m1 + 5), "Yes");
    EXPECT_EQ(p.display(m1 + 6), "On");
    EXPECT_FLOAT_EQ(p.get(m1 + 6), 0.0f);
    p.set(m1 + 5, 0.0f);
    p.set(m1 + 6, 1.0f);
    EXPECT_EQ(p.display(m1 + 5), "No");
    EXPECT_EQ(p.display(m1 + 6), "Off");
    EXPECT_FLOAT_EQ(p.get(m1 + 6), 1.0f);
    p.set(m1 + 6, 0.0f);
    // "Speed" shows a note value.
    p.set(m1 + 2, 0.0f);
    EXPECT_EQ(p.display(m1 + 2), "1/256");
    p.set(m1 + 2, 0.55f);
    EXPECT_EQ(p.display(m1 + 2), "1/4");
    p.set(m1 + 2, 1.0f);
    EXPECT_EQ(p.display(m1 + 2), "4");
    // "Min" and "Max" are numbers.
    p.set(m1 + 3, 0.5f);
    EXPECT_EQ(p.display(m1 + 3), "0.500000");
    EXPECT_FLOAT_EQ(p.get(m1 + 3), 0.5f);
    // "Type" maps to 0..3 and shows nothing; the table steps show nothing.
    p.set(m1, 1.0f);
    EXPECT_FLOAT_EQ(p.get(m1), 1.0f);
    p.set(m1, 0.5f);
    EXPECT_FLOAT_EQ(p.get(m1), 1.0f / 3.0f);
    EXPECT_EQ(p.display(m1), kUntouched);
    // The last modulator's table: "Init" sets every step to 0.
    const int m10 = 91 + 9 * 15;
    for (int s = 7; s < 15; ++s) EXPECT_FLOAT_EQ(p.get(m10 + s), 0.0f);
    p.set(m10 + 8, 0.125f);
    EXPECT_FLOAT_EQ(p.get(m10 + 8), 0.125f);
    EXPECT_FLOAT_EQ(p.get(m10 + 9), 0.0f);
    p.set(240, 0.3f);
    EXPECT_FLOAT_EQ(p.get(240), 0.3f);
    EXPECT_EQ(p.display(240), kUntouched);
    EXPECT_EQ(p.label(240), kUntouched);
}

TEST_F(ParameterModelTest, IndicesOutsideTheLayoutReachNothing) {
    Plugin& p = *plugin;
    std::vector<float> before;
    for (int32_t i = 0; i < 241; ++i) before.push_back(p.get(i));
    for (int32_t i : {-1, -91, INT_MIN, 241, 242, 255, 256, INT_MAX}) {
        p.set(i, 0.7f);
        EXPECT_EQ(p.get(i), 0.0f) << i;
        EXPECT_EQ(p.display(i), kUntouched) << i;
        EXPECT_EQ(p.label(i), kUntouched) << i;
    }
    for (int32_t i = 0; i < 241; ++i) EXPECT_EQ(p.get(i), before[i]) << i;
    EXPECT_EQ(p.name(241), "Auto #11 Type");
}

}  // namespace
}  // namespace varitap::test
