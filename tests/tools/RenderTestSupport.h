// Helpers shared by the command-line host's tests, over the base tests'
// temporary folder and file helpers: a run of the real varitap-render
// program with its output captured, and audio files read with their format
// and written through varitap-render's own writer.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "../base/TestSupport.h"
#include "tools/render/AudioFiles.h"
#include "tools/render/PluginInstance.h"

namespace rendertest {

using varitap::test::fileExists;
using varitap::test::TempDir;
inline std::string readText(const std::string& path) { return varitap::test::readFile(path); }

// Sorted names in a folder, hidden ones included (temporary files start with '.').
inline std::vector<std::string> entries(const TempDir& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir.path())) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// Sets XDG_CONFIG_HOME for the test and restores it at the end.
class ConfigHomeGuard {
public:
    explicit ConfigHomeGuard(const std::string& path) {
        if (const char* value = std::getenv("XDG_CONFIG_HOME")) saved_ = value;
        ::setenv("XDG_CONFIG_HOME", path.c_str(), 1);
    }
    ~ConfigHomeGuard() { saved_ ? ::setenv("XDG_CONFIG_HOME", saved_->c_str(), 1) : ::unsetenv("XDG_CONFIG_HOME"); }

private:
    std::optional<std::string> saved_;
};

inline std::unique_ptr<render::PluginInstance> loadOrFail(const std::string& path) {
    std::string error;
    auto plugin = render::PluginInstance::load(path, error);
    EXPECT_NE(plugin, nullptr) << error;
    return plugin;
}

struct RunResult {
    int status = -1;
    std::string out, err;
    // stderr lines, for the "one clear line" rule.
    int errorLines() const {
        int lines = 0;
        for (char c : err) lines += c == '\n';
        return lines;
    }
};

inline std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Runs varitap-render with the arguments in a clean configuration folder.
inline RunResult runRender(const std::vector<std::string>& args, const std::string& configHome,
                           const std::string& workDir = "") {
    static int counter = 0;
    std::string base = configHome + "/.run" + std::to_string(++counter);
    std::string command = "cd " + shellQuote(workDir.empty() ? configHome : workDir) +
                          " && XDG_CONFIG_HOME=" + shellQuote(configHome) + " " + RENDER_EXE;
    for (const std::string& arg : args) command += " " + shellQuote(arg);
    command += " > " + shellQuote(base + ".out") + " 2> " + shellQuote(base + ".err");
    RunResult result;
    int status = std::system(command.c_str());
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.out = readText(base + ".out");
    result.err = readText(base + ".err");
    ::unlink((base + ".out").c_str());
    ::unlink((base + ".err").c_str());
    return result;
}

struct Audio {
    int channels = 0;
    int rate = 0;
    int format = 0;
    std::vector<float> samples;  // interleaved
    long frames() const { return channels ? static_cast<long>(samples.size()) / channels : 0; }
    float at(long frame, int channel) const { return samples[frame * channels + channel]; }
};

inline Audio readAudio(const std::string& path) {
    Audio audio;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return audio;
    audio.channels = info.channels;
    audio.rate = info.samplerate;
    audio.format = info.format;
    audio.samples.resize(static_cast<size_t>(info.frames) * info.channels);
    sf_readf_float(file, audio.samples.data(), info.frames);
    sf_close(file);
    return audio;
}

inline bool writeAudio(const std::string& path, const Audio& audio) {
    std::string error;
    return render::writeAudioFile(path, audio.samples, audio.channels, audio.rate, error);
}

// A silent file with single-sample impulses of the given heights.
inline Audio impulses(int channels, int rate, long frames, const std::vector<std::pair<long, float>>& at,
                      int channel = -1) {
    Audio audio;
    audio.channels = channels;
    audio.rate = rate;
    audio.samples.assign(static_cast<size_t>(frames) * channels, 0.0f);
    for (auto [frame, height] : at)
        for (int c = 0; c < channels; ++c)
            if (channel < 0 || c == channel) audio.samples[frame * channels + c] = height;
    return audio;
}

// Frames of one channel whose magnitude exceeds the threshold.
inline std::vector<long> peaks(const Audio& audio, int channel, float threshold) {
    std::vector<long> found;
    for (long f = 0; f < audio.frames(); ++f)
        if (std::abs(audio.at(f, channel)) > threshold) found.push_back(f);
    return found;
}

}  // namespace rendertest
