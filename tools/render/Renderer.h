// The render loop: feeds a source through a loaded plug-in block by block
// with a playing transport from sample 0, keeps a tail after the input ends,
// and hands every block to a sink (file writer, plot). Also the A/B
// benchmark of two plug-ins on the same input.
#pragma once

#include "tools/render/AudioFiles.h"
#include "tools/render/PluginInstance.h"

#include <functional>
#include <string>
#include <vector>

namespace render {

// Varitap's buses hold 44100 samples and it ignores longer blocks.
constexpr int kMaxBlockSize = 44100;

struct RenderSettings {
    double tempo = 120.0;
    int blockSize = 512;
    double tailSeconds = 2.0;
    bool progress = false;  // a bar on stderr
};

struct RenderResult {
    int64_t frames = 0;           // frames rendered, tail included
    double audioSeconds = 0.0;    // their duration
    double processSeconds = 0.0;  // time spent inside the plug-in's process calls
    double processCpuSeconds = 0.0;  // the same as this thread's processor time
    double wallSeconds = 0.0;     // the whole loop, reading and sinks included
    double realTimeFactor() const { return processSeconds > 0.0 ? audioSeconds / processSeconds : 0.0; }
};

// Channels written to the output file: the plug-in's outputs, but no more
// than the input has, except that mono input still gets stereo output (Varitap
// feeds a mono signal to both of its inputs and answers on both outputs).
int outputChannelCount(int pluginOutputs, int inputChannels);
// Plug-in input pins that carry the file: mono goes to the first two.
int connectedInputCount(int pluginInputs, int inputChannels);

// Receives interleaved input (source channels) and output (outputChannels)
// frames of each block; returning false stops the render.
using BlockSink = std::function<bool(const float* input, const float* output, int frames)>;

bool renderSource(HostedPlugin& plugin, AudioSource& source, const RenderSettings& settings,
                  int outputChannels, const BlockSink& sink, RenderResult& result,
                  std::string& error);

struct BenchResult {
    std::vector<double> secondsA, secondsB;  // processor time in the process calls of each run, in run order
    double bestA = 0.0, bestB = 0.0;         // fastest run of each
    double ratio = 0.0;                      // bestA / bestB: how much A costs relative to B
    double audioSeconds = 0.0;
};

// Runs A, B, A, B, ... (rounds of each) over the same input with the same
// settings, without writing anything, and compares their fastest runs.
BenchResult benchmark(HostedPlugin& a, HostedPlugin& b, MemorySource& source,
                      const RenderSettings& settings, int rounds);

}  // namespace render
