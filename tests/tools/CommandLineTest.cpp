#include "tools/render/CommandLine.h"

#include <gtest/gtest.h>

using namespace render;

namespace {

bool parse(std::vector<const char*> args, Options& options, std::string& error) {
    args.insert(args.begin(), "varitap-render");
    return parseCommandLine(static_cast<int>(args.size()), args.data(), options, error);
}

}  // namespace

TEST(CommandLineTest, SettingsSplitAtTheLastEqualsSignAndKnowIndicesFromNames) {
    // {text, target, index, value}; a name holding '=' keeps it, and only
    // all digits make an index.
    const struct { const char* text; const char* target; int index; float value; } good[] = {
        {"#1: Delay=0.25", "#1: Delay", -1, 0.25f}, {"a=b=1", "a=b", -1, 1.0f},
        {"21=0.5", "21", 21, 0.5f}, {"2x=0.5", "2x", -1, 0.5f}};
    ParameterSetting setting;
    std::string error;
    for (const auto& row : good) {
        ASSERT_TRUE(parseSetting(row.text, setting, error)) << row.text;
        EXPECT_EQ(setting.target, row.target);
        EXPECT_EQ(setting.index, row.index) << row.text;
        EXPECT_FLOAT_EQ(setting.value, row.value) << row.text;
    }
    // {text, a word the error names}
    const std::pair<const char*, const char*> bad[] = {{"Delay", "Delay"}, {"=0.5", ""}, {"Delay=", ""},
                                                       {"Delay=half", "half"}, {"Delay=nan", ""},
                                                       {"99999999999=0.5", ""}};
    for (const auto& [text, named] : bad) {
        EXPECT_FALSE(parseSetting(text, setting, error)) << text;
        EXPECT_NE(error.find(named), std::string::npos) << text << ": " << error;
    }
}

TEST(CommandLineTest, OptionsTakeValuesInBothFormsAndRefuseBadOnes) {
    Options options;
    std::string error;
    ASSERT_TRUE(parse({"in.flac", "--tempo", "93.5", "--block=64", "--tail", "0", "--set", "1=0.5",
                       "--set=#2: Sync=1", "--plot", "p.png", "--no-spectrogram", "--bench", "b.so",
                       "--bench-set", "Low Cut 1=1", "--rounds", "3", "-q"},
                      options, error))
        << error;
    EXPECT_EQ(options.input, "in.flac");
    EXPECT_EQ(options.output, "in.rendered.flac");
    EXPECT_DOUBLE_EQ(options.tempo, 93.5);
    EXPECT_EQ(options.blockSize, 64);
    EXPECT_DOUBLE_EQ(options.tailSeconds, 0.0);
    ASSERT_EQ(options.settings.size(), 2u);
    EXPECT_EQ(options.settings[1].target, "#2: Sync");
    EXPECT_EQ(options.plot, "p.png");
    EXPECT_FALSE(options.spectrogram);
    EXPECT_EQ(options.benchPlugin, "b.so");
    ASSERT_EQ(options.benchSettings.size(), 1u);
    EXPECT_EQ(options.benchSettings[0].target, "Low Cut 1");
    EXPECT_EQ(options.benchRounds, 3);
    EXPECT_TRUE(options.quiet);

    // Each refused with an error that names the option or the bad word.
    const std::vector<std::vector<const char*>> bad = {
        {"--tempo", "0"},       {"--tempo", "fast"}, {"--block", "0"},     {"--block", "44101"},
        {"--block", "12.5"},    {"--tail", "-1"},    {"--rate", "100"},    {"--output"},
        {"--frobnicate"},       {"a.wav", "b.wav"},  {"--set", "nothing"},
    };
    for (const auto& args : bad) {
        EXPECT_FALSE(parse(args, options, error)) << args[0];
        EXPECT_TRUE(error.find(args[0]) != std::string::npos || error.find(args.back()) != std::string::npos)
            << args[0] << ": " << error;
    }
}

// (Without an input: RenderToolTest.DemoRendersWithAPlotAndItsSpeed.)
TEST(CommandLineTest, DefaultOutputSitsBesideTheInput) {
    EXPECT_EQ(defaultOutputPath("/a/b.c/song.aiff"), "/a/b.c/song.rendered.aiff");
    EXPECT_EQ(defaultOutputPath("/a/b.c/song"), "/a/b.c/song.rendered.wav");
    EXPECT_EQ(defaultOutputPath("/a/.hidden"), "/a/.hidden.rendered.wav");
}
