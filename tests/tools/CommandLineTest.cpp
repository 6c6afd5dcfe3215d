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
    ParameterSetting setting;
    std::string error;
    ASSERT_TRUE(parseSetting("#1: Delay=0.25", setting, error));
    EXPECT_EQ(setting.target, "#1: Delay");
    EXPECT_EQ(setting.index, -1);
    EXPECT_FLOAT_EQ(setting.value, 0.25f);

    ASSERT_TRUE(parseSetting("a=b=1", setting, error));  // a name holding '='
    EXPECT_EQ(setting.target, "a=b");
    EXPECT_FLOAT_EQ(setting.value, 1.0f);

    ASSERT_TRUE(parseSetting("21=0.5", setting, error));
    EXPECT_EQ(setting.index, 21);
    ASSERT_TRUE(parseSetting("2x=0.5", setting, error));  // not all digits: a name
    EXPECT_EQ(setting.index, -1);

    EXPECT_FALSE(parseSetting("Delay", setting, error));
    EXPECT_NE(error.find("Delay"), std::string::npos);
    EXPECT_FALSE(parseSetting("=0.5", setting, error));
    EXPECT_FALSE(parseSetting("Delay=", setting, error));
    EXPECT_FALSE(parseSetting("Delay=half", setting, error));
    EXPECT_NE(error.find("half"), std::string::npos);
    EXPECT_FALSE(parseSetting("Delay=nan", setting, error));
    EXPECT_FALSE(parseSetting("99999999999=0.5", setting, error));
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

    const std::vector<std::vector<const char*>> bad = {
        {"--tempo", "0"},       {"--tempo", "fast"}, {"--block", "0"},     {"--block", "44101"},
        {"--block", "12.5"},    {"--tail", "-1"},    {"--rate", "100"},    {"--output"},
        {"--frobnicate"},       {"a.wav", "b.wav"},  {"--set", "nothing"},
    };
    for (const auto& args : bad) {
        EXPECT_FALSE(parse(args, options, error)) << args[0];
        EXPECT_FALSE(error.empty());
    }
    EXPECT_FALSE(parse({"--tempo", "0"}, options, error));
    EXPECT_NE(error.find("--tempo"), std::string::npos);
}

TEST(CommandLineTest, DefaultOutputSitsBesideTheInput) {
    EXPECT_EQ(defaultOutputPath(""), "varitap-demo.wav");
    EXPECT_EQ(defaultOutputPath("/a/b.c/song.aiff"), "/a/b.c/song.rendered.aiff");
    EXPECT_EQ(defaultOutputPath("/a/b.c/song"), "/a/b.c/song.rendered.wav");
    EXPECT_EQ(defaultOutputPath("/a/.hidden"), "/a/.hidden.rendered.wav");
}
