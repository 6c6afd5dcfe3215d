// The 241 parameters as the host reads them through the bundle: names,
// displays and labels across the whole layout, the modulators' deliberate
// oddities, and the guards around the layout.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <initializer_list>
#include <memory>
#include <string>

#include "FakeHost.h"

namespace varitap::test {
namespace {

using namespace vst;

constexpr const char* kUntouched = Plugin::kUntouched;

using ParameterModelTest = InstanceTest;

TEST_F(ParameterModelTest, NamesFollowTheLayout) {
    Plugin& p = *instance;
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
}

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

TEST_F(ParameterModelTest, ChannelSelectorsShowSevenPlaceNumbers) {
    expectRows(*instance, {{2, 0.5f, 0.5f, "     22"},
                         {0, 1.0f, 1.0f, "     44"},  // Intern 4
                         {0, 0.99f, 0.99f, "     43"},
                         {9, 0.0f, 0.0f, "      0"},
                         {10, 1.0f, 1.0f, "     24"},
                         {19, 0.5f, 0.5f, "     12"},
                         {20, 0.25f, 0.25f, "0.250000"}});
    // Routing and the mix have no label.
    for (int32_t i : {0, 10, 20}) EXPECT_EQ(instance->label(i), kUntouched) << i;
}

TEST_F(ParameterModelTest, TapTextsComeFromTheTaps) {
    Plugin& p = *instance;
    const int tap3 = 21 + 2 * 7;
    // "Init" leaves tap 3 free at length 0; its full 56000-sample line is
    // 1269.8 ms, cut to "1269". Volume 0 in decibels; filter type names;
    // cutoff and resonance show nothing.
    EXPECT_EQ(p.display(tap3), "0.0");
    expectRows(p, {{tap3, 1.0f, 1.0f, "1269"},
                   {tap3 + 1, 0.0f, 0.0f, "-oo"},
                   {tap3 + 4, 0.0f, 0.0f, "***"},
                   {tap3 + 4, 0.5f, 0.5f, "LowPass"},
                   {tap3 + 5, 0.5f, 0.5f, kUntouched},
                   {tap3 + 6, 0.5f, 0.5f, kUntouched}});
    EXPECT_EQ(p.label(tap3), "Samples");
    p.set(tap3, 0.5f);
    EXPECT_FLOAT_EQ(p.get(tap3), 0.5f);  // 28000 samples
    p.set(tap3 + 3, 1.0f);
    EXPECT_EQ(p.label(tap3), "Tempo");
    p.set(tap3, 0.0f);
    EXPECT_EQ(p.display(tap3), "1/256");
    EXPECT_EQ(p.label(tap3 + 4), kUntouched);  // filter rows have no label
}

TEST_F(ParameterModelTest, ModulatorRowsKeepTheirOddities) {
    Plugin& p = *instance;
    const int m1 = 91, m10 = 91 + 9 * 15;
    expectRows(p, {// "Index" carries a raw parameter number and shows its name.
                   {m1 + 1, 21.7f, 21.0f, "#1: Delay"},
                   {m1 + 1, 20.0f, 20.0f, "Wet/Dry Mix Volume"},
                   // "Power" shows the sync flag, not the power.
                   {m1 + 5, 1.0f, 1.0f, "Yes"},
                   {m1 + 6, 0.0f, 0.0f, "On"},
                   {m1 + 5, 0.0f, 0.0f, "No"},
                   {m1 + 6, 1.0f, 1.0f, "Off"},
                   {m1 + 6, 0.0f, 0.0f, "Off"},
                   // "Speed" shows a note value, "Min" and "Max" numbers.
                   {m1 + 2, 0.0f, 0.0f, "1/256"},
                   {m1 + 2, 0.55f, 0.55f, "1/4"},
                   {m1 + 2, 1.0f, 1.0f, "4"},
                   {m1 + 3, 0.5f, 0.5f, "0.500000"},
                   // They are values of the target's range: any number is
                   // kept as given, one that is not a number is ignored.
                   {m1 + 3, 12.25f, 12.25f, "12.25000"},
                   {m1 + 4, -3.0f, -3.0f, "-3.00000"},
                   {m1 + 3, std::nanf(""), 12.25f, "12.25000"},
                   {m1 + 4, -HUGE_VALF, -3.0f, "-3.00000"},
                   // "Type" maps to 0..3 and shows nothing, nor do the steps.
                   {m1, 1.0f, 1.0f, kUntouched},
                   {m1, 0.5f, 1.0f / 3.0f, kUntouched},
                   {m10 + 8, 0.125f, 0.125f, kUntouched},
                   {240, 0.3f, 0.3f, kUntouched}});
    // A table modulator's rows read and show the same way.
    p.set(m1, 1.0f);
    expectRows(p, {{m1 + 2, 1.0f, 1.0f, "4"}, {m1 + 5, 0.0f, 0.0f, "No"}, {m1 + 5, 1.0f, 1.0f, "Yes"}});
    // The other steps of the last table keep the 0 of "Init".
    for (int s : {7, 9, 10, 11, 12, 13}) EXPECT_FLOAT_EQ(p.get(m10 + s), 0.0f) << s;
    EXPECT_EQ(p.label(240), kUntouched);
}

TEST_F(ParameterModelTest, IndicesOutsideTheLayoutReachNothing) {
    Plugin& p = *instance;
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
