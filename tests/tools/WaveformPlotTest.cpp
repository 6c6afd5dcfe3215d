#include "tools/render/WaveformPlot.h"

#include "RenderTestSupport.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <cmath>

using namespace render;
using namespace rendertest;

TEST(WaveformPlotTest, FftFindsASineInItsBin) {
    std::vector<std::complex<double>> data(64);
    for (int i = 0; i < 64; ++i) data[i] = std::sin(2.0 * M_PI * 8.0 * i / 64.0);
    fft(data);
    for (int k = 0; k < 64; ++k) {
        double expected = (k == 8 || k == 56) ? 32.0 : 0.0;
        EXPECT_NEAR(std::abs(data[k]), expected, 1e-9) << k;
    }
}

TEST(WaveformPlotTest, PeaksLandInTheColumnOfTheirTime) {
    const int64_t total = 12000;  // ten frames per column
    WaveformPlot plot(2, 1, total, 48000.0, 120.0, false);
    std::vector<float> input(total * 2, 0.0f), output(total, 0.0f);
    input[2 * 4005 + 1] = -0.8f;  // channel 2, column 400
    output[11999] = 0.6f;         // last column
    // Blocks of odd sizes must not shift anything.
    for (int64_t done = 0; done < total;) {
        int frames = static_cast<int>(std::min<int64_t>(777, total - done));
        plot.add(input.data() + done * 2, output.data() + done, frames);
        done += frames;
    }
    EXPECT_FLOAT_EQ(plot.inputPeak(1, 400), 0.8f);
    EXPECT_FLOAT_EQ(plot.inputPeak(1, 399), 0.0f);
    EXPECT_FLOAT_EQ(plot.inputPeak(1, 401), 0.0f);
    EXPECT_FLOAT_EQ(plot.inputPeak(0, 400), 0.0f);
    EXPECT_FLOAT_EQ(plot.outputPeak(0, WaveformPlot::kWidth - 1), 0.6f);
    EXPECT_FLOAT_EQ(plot.outputPeak(0, 0), 0.0f);
}

TEST(WaveformPlotTest, WritesAPngOfItsSize) {
    TempDir dir;
    const int64_t total = 44100;
    WaveformPlot plot(1, 2, total, 44100.0, 120.0, true);
    std::vector<float> input(total), output(total * 2);
    for (int64_t i = 0; i < total; ++i) {
        input[i] = static_cast<float>(0.5 * std::sin(2.0 * M_PI * 440.0 * i / 44100.0));
        output[2 * i] = output[2 * i + 1] = input[i];
    }
    plot.add(input.data(), output.data(), static_cast<int>(total));
    std::string error;
    ASSERT_TRUE(plot.write(dir / "plot.png", "a title", error)) << error;
    cairo_surface_t* image = cairo_image_surface_create_from_png((dir / "plot.png").c_str());
    ASSERT_EQ(cairo_surface_status(image), CAIRO_STATUS_SUCCESS);
    EXPECT_EQ(cairo_image_surface_get_width(image), WaveformPlot::kWidth);
    EXPECT_EQ(cairo_image_surface_get_height(image), plot.height());
    EXPECT_GT(plot.height(), 30 + 3 * 110 + WaveformPlot::kSpectrumRows);  // spectrogram included
    cairo_surface_destroy(image);
    EXPECT_EQ(entries(dir), std::vector<std::string>{"plot.png"});
    // A plot that cannot be written: RenderToolTest.BadInputGetsOneLineAndLeavesNoOutput.
}
