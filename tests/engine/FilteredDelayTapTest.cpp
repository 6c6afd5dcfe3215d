#include "modulation/FilteredDelayTap.h"

#include <cmath>

#include "EngineFixture.h"

namespace varitap {
namespace {

using test::runTap;

class FilteredDelayTapTest : public testing::Test {
protected:
    // A tap of 300 samples fed back by 0.7 through a resonant "LowPass".
    static void patch(DelayTap& tap, TapFilter& filter) {
        tap.setDelaySamples(300);
        tap.setFeedback(0.7f);
        filter.setParameter(TapFilter::kType, 0.5f);
        filter.setParameter(TapFilter::kCutoff, 0.2f);
        filter.setParameter(TapFilter::kResonance, 0.5f);
    }

    RefPtr<ScratchPool> pool_ = test::holdScratchPool();
};

TEST_F(FilteredDelayTapTest, FiltersTheDelayedSignalAfterTheLine) {
    // The same delay as a plain tap, then the same filter: equal to the bit.
    FilteredDelayTap tap;
    DelayTap plain(44100);
    TapFilter filter(44100.0f);
    patch(tap, tap.filter());
    patch(plain, filter);
    const std::vector<float> input = test::noise(4096, 7);
    std::vector<float> expected = runTap(plain, input, 512);
    for (size_t at = 0; at < input.size(); at += 512) filter.processInPlace(expected.data() + at, 512);
    EXPECT_EQ(runTap(tap, input, 512), expected);
    EXPECT_NE(expected[400], 0.0f);

    // Type "***" leaves the delayed signal as it is, before or after the line.
    for (bool filterFirst : {false, true}) {
        FilteredDelayTap off;
        off.setFilterFirst(filterFirst);
        off.setDelaySamples(8);
        off.setFeedback(0.0f);
        off.setParameter(kTapFilterType, 0.0f);
        EXPECT_EQ(runTap(off, test::impulse(32, 1, 1.0f), 32), test::impulse(32, 9, 0.5f)) << filterFirst;
    }

    // The filter rows reach the filter, quantised and cleaned.
    tap.setParameter(kTapFilterType, 0.74f);  // quantised to "LowPass"
    EXPECT_EQ(tap.getParameter(kTapFilterType), 0.5f);
    EXPECT_EQ(test::display(tap, kTapFilterType), "LowPass");
    tap.setParameter(kTapCutoff, 0.3f);
    tap.setParameter(kTapResonance, std::nanf(""));
    EXPECT_EQ(tap.filter().getParameter(TapFilter::kCutoff), 0.3f);
    EXPECT_EQ(tap.getParameter(kTapResonance), 0.0f);
    EXPECT_EQ(tap.getParameter(7), 0.0f);
    char text[16] = "untouched";
    tap.getParameterName(7, text);
    EXPECT_STREQ(text, "untouched");
}

// A filter state out of every signal's range (NaN, infinite, or past the
// runaway level, as a fault upstream could leave it) is caught at the end of
// its block: the tap adds nothing for that block and then sounds as a new
// tap, before or after its line. Without the catch, NaN would stay for ever.
TEST_F(FilteredDelayTapTest, ARunawayFilterStartsAgainFromSilence) {
    for (bool filterFirst : {false, true}) {
        for (double state : {std::nan(""), HUGE_VAL, 1e100}) {
            SCOPED_TRACE(testing::Message() << "filter first " << filterFirst << " state " << state);
            FilteredDelayTap tap, fresh;
            for (FilteredDelayTap* t : {&tap, &fresh}) {
                t->setFilterFirst(filterFirst);
                patch(*t, t->filter());
            }
            runTap(tap, test::noise(512, 3), 512);
            tap.filter().setState({state, 0.0, 0.0, state});
            EXPECT_EQ(runTap(tap, test::noise(512, 3), 512), std::vector<float>(512, 0.0f));
            EXPECT_EQ(tap.filter().state().band, 0.0);
            for (int b = 0; b < 4; ++b)
                ASSERT_EQ(runTap(tap, test::noise(512, 10 + b), 512), runTap(fresh, test::noise(512, 10 + b), 512))
                    << "block " << b;
        }
    }
}

}  // namespace
}  // namespace varitap
