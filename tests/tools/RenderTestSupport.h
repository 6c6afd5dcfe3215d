// The command-line host's test harness, over the base tests' temporary
// folder and file helpers. The tests host Varitap's own bundle: its "Init"
// program mixes the input at 0.5636 with two echoes at 0.4364, one beat
// later on the left and three quarters of a beat later on the right, which
// places every echo on a sample known from the tempo and the rate; with
// "Wet/Dry Mix Volume" at 1 it passes the input unchanged.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "../base/TestSupport.h"
#include "tools/render/AudioFiles.h"
#include "tools/render/PluginInstance.h"

namespace rendertest {

using varitap::test::fileExists;
using varitap::test::readFile;
using varitap::test::TempDir;

const std::string kBundle = VARITAP_BUNDLE_DIR;
const std::string kSharedObject = kBundle + "/Contents/" VARITAP_ARCH_DIR "/Varitap.so";
const std::string kClapBundle = VARITAP_CLAP_BUNDLE_DIR;
constexpr float kDry = 0.563636f, kWet = 0.436364f;

// Sorted names in a folder, hidden ones included (temporary files start with '.').
inline std::vector<std::string> entries(const TempDir& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir.path())) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

struct RunResult {
    int status = -1;
    std::string out, err;
    // stderr lines, for the "one clear line" rule.
    long errorLines() const { return std::count(err.begin(), err.end(), '\n'); }
};

inline std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// A silent interleaved signal with single-sample impulses of the given heights.
inline std::vector<float> impulses(int channels, long frames, const std::vector<std::pair<long, float>>& at) {
    std::vector<float> samples(static_cast<size_t>(frames) * channels, 0.0f);
    for (auto [frame, height] : at)
        for (int c = 0; c < channels; ++c) samples[frame * channels + c] = height;
    return samples;
}

// Frames of one channel of an interleaved signal whose magnitude exceeds the threshold.
inline std::vector<long> peaks(const std::vector<float>& samples, int channels, int channel, float threshold) {
    std::vector<long> found;
    for (size_t i = channel; i < samples.size(); i += channels)
        if (std::abs(samples[i]) > threshold) found.push_back(static_cast<long>(i / channels));
    return found;
}

// Every test runs in a temporary folder that is also the configuration
// folder, so the user presets file that a closing Varitap saves stays there
// (the tests outside this fixture read no configuration).
class RenderTest : public ::testing::Test {
protected:
    void SetUp() override {
        ::setenv("XDG_CONFIG_HOME", dir.path().c_str(), 1);
        if (!fileExists(kSharedObject)) GTEST_SKIP() << "Varitap bundle not built";
    }

    // Runs varitap-render on the bundle (a later --plugin wins) in the folder.
    RunResult run(std::vector<std::string> args) {
        static int counter = 0;
        const std::string base = dir / (".run" + std::to_string(++counter));
        std::string command = "cd " + shellQuote(dir.path()) + " && XDG_CONFIG_HOME=" + shellQuote(dir.path()) +
                              " " RENDER_EXE " --plugin " + shellQuote(kBundle);
        for (const std::string& arg : args) command += " " + shellQuote(arg);
        command += " > " + shellQuote(base + ".out") + " 2> " + shellQuote(base + ".err");
        RunResult result;
        const int status = std::system(command.c_str());
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = readFile(base + ".out");
        result.err = readFile(base + ".err");
        std::filesystem::remove(base + ".out");
        std::filesystem::remove(base + ".err");
        return result;
    }

    std::unique_ptr<render::PluginInstance> load(const std::string& path = kBundle) {
        std::string error;
        auto plugin = render::PluginInstance::load(path, error);
        EXPECT_NE(plugin, nullptr) << error;
        return plugin;
    }

    // A file's samples, rate and channels (null when it cannot be read).
    std::unique_ptr<render::MemorySource> readAudio(const std::string& name) {
        std::string error;
        auto file = render::FileSource::open(dir / name, error);
        return file ? file->readAll() : nullptr;
    }

    TempDir dir;
};

}  // namespace rendertest
