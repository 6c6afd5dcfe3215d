#include "tools/render/Renderer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

namespace render {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The calling thread's processor time: what a process call costs, whatever
// else the machine is doing.
double threadSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
}

class ProgressBar {
public:
    explicit ProgressBar(bool enabled) : enabled_(enabled) {}
    ~ProgressBar() {
        if (enabled_ && shown_ >= 0) std::fprintf(stderr, "\r%60s\r", "");
    }
    void update(int64_t done, int64_t total) {
        if (!enabled_ || total <= 0) return;
        int percent = static_cast<int>(done * 100 / total);
        if (percent == shown_) return;
        shown_ = percent;
        char bar[41];
        int filled = percent * 40 / 100;
        for (int i = 0; i < 40; ++i) bar[i] = i < filled ? '#' : '.';
        bar[40] = 0;
        std::fprintf(stderr, "\rrendering [%s] %3d%%", bar, percent);
        std::fflush(stderr);
    }

private:
    bool enabled_;
    int shown_ = -1;
};

}  // namespace

int outputChannelCount(int pluginOutputs, int inputChannels) {
    return std::min(pluginOutputs, std::max(inputChannels, 2));
}

int connectedInputCount(int pluginInputs, int inputChannels) {
    return std::min(pluginInputs, inputChannels == 1 ? 2 : inputChannels);
}

bool renderSource(HostedPlugin& plugin, AudioSource& source, const RenderSettings& settings,
                  int outputChannels, const BlockSink& sink, RenderResult& result,
                  std::string& error) {
    result = RenderResult{};
    const int block = std::clamp(settings.blockSize, 1, kMaxBlockSize);
    const int inChannels = source.channels();
    const int pluginInputs = plugin.numInputs();
    const int pluginOutputs = plugin.numOutputs();
    if (outputChannels < 1 || outputChannels > pluginOutputs) {
        error = "the plug-in has no audio outputs to render";
        return false;
    }
    const double rate = source.sampleRate();
    const int64_t tail = static_cast<int64_t>(std::max(0.0, settings.tailSeconds) * rate);
    const int64_t total = source.frames() + tail;

    std::vector<float> input(static_cast<size_t>(block) * inChannels);
    std::vector<float> output(static_cast<size_t>(block) * outputChannels);
    plugin.start(rate, block, connectedInputCount(pluginInputs, inChannels), outputChannels,
                 settings.tempo);
    float** in = plugin.inputs();
    float** out = plugin.outputs();
    ProgressBar progress(settings.progress);

    const Clock::time_point started = Clock::now();
    bool sourceDone = false;
    int64_t done = 0;
    while (done < total) {
        const int frames = static_cast<int>(std::min<int64_t>(block, total - done));
        int64_t got = sourceDone ? 0 : source.read(input.data(), frames);
        if (got < frames) sourceDone = true;  // the tail, or a file shorter than it said
        std::fill(input.begin() + got * inChannels, input.begin() + static_cast<size_t>(frames) * inChannels,
                  0.0f);
        for (int pin = 0; pin < pluginInputs; ++pin) {
            int channel = pin < inChannels ? pin : (inChannels == 1 && pin == 1 ? 0 : -1);
            float* target = in[pin];
            if (channel < 0) {
                std::fill(target, target + frames, 0.0f);
                continue;
            }
            for (int i = 0; i < frames; ++i) target[i] = input[static_cast<size_t>(i) * inChannels + channel];
        }
        // The wall clock inside (it is cheap to read); the thread's clock,
        // a system call, outside.
        const double cpuBefore = threadSeconds();
        const Clock::time_point before = Clock::now();
        plugin.process(frames);
        result.processSeconds += secondsSince(before);
        result.processCpuSeconds += threadSeconds() - cpuBefore;
        for (int c = 0; c < outputChannels; ++c)
            for (int i = 0; i < frames; ++i) output[static_cast<size_t>(i) * outputChannels + c] = out[c][i];
        if (sink && !sink(input.data(), output.data(), frames)) {
            plugin.stop();
            error = "writing the output failed";
            return false;
        }
        done += frames;
        progress.update(done, total);
    }
    plugin.stop();
    result.wallSeconds = secondsSince(started);
    result.frames = done;
    result.audioSeconds = static_cast<double>(done) / rate;
    return true;
}

BenchResult benchmark(HostedPlugin& a, HostedPlugin& b, MemorySource& source,
                      const RenderSettings& settings, int rounds) {
    BenchResult bench;
    RenderSettings quiet = settings;
    quiet.progress = false;
    std::string error;
    // Round 0 is not timed: some plug-ins (LSP's among them) make their
    // buffers ready on a worker thread after their first blocks and only then
    // do all their work.
    for (int round = 0; round <= std::max(1, rounds); ++round) {
        for (HostedPlugin* plugin : {&a, &b}) {
            source.rewind();
            RenderResult result;
            int channels = outputChannelCount(plugin->numOutputs(), source.channels());
            if (!renderSource(*plugin, source, quiet, channels, nullptr, result, error)) continue;
            if (round == 0) {
                // Time for such a worker to finish before the timed rounds.
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                continue;
            }
            (plugin == &a ? bench.secondsA : bench.secondsB).push_back(result.processCpuSeconds);
            bench.audioSeconds = result.audioSeconds;
        }
    }
    if (!bench.secondsA.empty()) bench.bestA = *std::min_element(bench.secondsA.begin(), bench.secondsA.end());
    if (!bench.secondsB.empty()) bench.bestB = *std::min_element(bench.secondsB.begin(), bench.secondsB.end());
    bench.ratio = bench.bestB > 0.0 ? bench.bestA / bench.bestB : 0.0;
    return bench;
}

}  // namespace render
