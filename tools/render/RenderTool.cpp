#include "tools/render/RenderTool.h"

#include "tools/render/AudioFiles.h"
#include "tools/render/ClapCheck.h"
#include "tools/render/DemoSignal.h"
#include "tools/render/PluginInstance.h"
#include "tools/render/PresetFile.h"
#include "tools/render/Renderer.h"
#include "tools/render/WaveformPlot.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

namespace render {

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

// Set by Ctrl-C or a termination request: the render stops at the next
// block and the temporary output is removed, so nothing half-written stays.
volatile std::sig_atomic_t gStopRequested = 0;

void requestStop(int) { gStopRequested = 1; }

void catchStopRequests() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    ::sigaction(SIGHUP, &action, nullptr);
}

int fail(const std::string& thing, const std::string& reason) {
    std::fprintf(stderr, "varitap-render: %s: %s\n", thing.c_str(), reason.c_str());
    return kExitFailure;
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string folderOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Whether a file can be created beside path (checked before rendering, so
// that a long render does not end in an error).
bool folderWritable(const std::string& path, std::string& error) {
    std::string probe = folderOf(path) + "/.varitap-render-probe-XXXXXX";
    std::vector<char> name(probe.begin(), probe.end());
    name.push_back(0);
    int fd = ::mkstemp(name.data());
    if (fd < 0) {
        error = std::string("cannot be written (") + std::strerror(errno) + ")";
        return false;
    }
    ::close(fd);
    ::unlink(name.data());
    return true;
}

std::string settingName(const ParameterSetting& setting) {
    return setting.index >= 0 ? "parameter " + setting.target : "parameter " + quoted(setting.target);
}

void listParameters(const HostedPlugin& plugin) {
    std::printf("%5s  %-26s %-12s %s\n", "index", "name", "display", "label");
    for (int i = 0; i < plugin.numParams(); ++i) {
        std::printf("%5d  %-26s %-12s %s\n", i, plugin.parameterName(i).c_str(),
                    plugin.parameterDisplay(i).c_str(), plugin.parameterLabel(i).c_str());
    }
}

std::string describePlugin(const HostedPlugin& plugin) {
    // Plug-ins that do not tell their name (Varitap among them) are named
    // after their file, as hosts name them after their bundle.
    std::string name = plugin.effectName();
    const std::string& path = plugin.location().sharedObject;
    if (name.empty()) {
        name = path.substr(path.find_last_of('/') + 1);
        const size_t dot = name.find_last_of('.');
        if (dot != std::string::npos && dot > 0) name.resize(dot);  // ".so", ".clap"
    }
    return name + " (" + path + ")";
}

}  // namespace

bool applySettings(HostedPlugin& plugin, const std::vector<ParameterSetting>& settings,
                   std::string& error) {
    std::vector<std::pair<int, float>> resolved;
    for (const ParameterSetting& setting : settings) {
        int index = setting.index;
        if (index < 0) {
            index = plugin.findParameter(setting.target);
            if (index < 0) {
                error = settingName(setting) + ": the plug-in has no parameter of that name (see --list-params)";
                return false;
            }
        } else if (index >= plugin.numParams()) {
            error = settingName(setting) + ": no such parameter (the plug-in has 0.." +
                    std::to_string(plugin.numParams() - 1) + ")";
            return false;
        }
        float low, high;
        plugin.parameterRange(index, low, high);
        if (!(setting.value >= low && setting.value <= high)) {
            char text[160];
            std::snprintf(text, sizeof(text), ": value %g is outside %g..%g", setting.value, low, high);
            error = settingName(setting) + text;
            return false;
        }
        resolved.emplace_back(index, setting.value);
    }
    for (const auto& [index, value] : resolved) plugin.setParameter(index, value);
    return true;
}

int runRenderTool(int argc, const char* const* argv) {
    Options options;
    std::string error;
    if (!parseCommandLine(argc, argv, options, error)) {
        std::fprintf(stderr, "varitap-render: %s\n", error.c_str());
        return kExitUsage;
    }
    if (options.help) {
        std::fputs(usageText(), stdout);
        return 0;
    }
    if (!options.checkClap.empty()) {
        const std::vector<std::string> failures = checkClapPlugin(options.checkClap);
        for (const std::string& failure : failures) std::fprintf(stderr, "varitap-render: %s\n", failure.c_str());
        if (!options.quiet && failures.empty()) std::printf("%s: every check passed\n", options.checkClap.c_str());
        return failures.empty() ? 0 : kExitFailure;
    }

    const std::string pluginPath = options.plugin.empty() ? defaultPluginPath() : options.plugin;
    std::unique_ptr<HostedPlugin> plugin = loadPlugin(pluginPath, error);
    if (!plugin) return fail(pluginPath, error);
    if (plugin->numOutputs() < 1) return fail(pluginPath, "the plug-in has no audio outputs");

    varitap::RefPtr<varitap::PresetLibrary> library = varitap::makeRef<varitap::PresetLibrary>();
    if (options.listPresets || !options.preset.empty()) loadPresetLibrary(*library, plugin->location().bundle);
    if (options.listPresets) {
        const std::vector<PresetEntry> presets = listPresets(*library);
        for (const PresetEntry& entry : presets)
            std::printf("%s\t%s\n", entry.fullName.c_str(), entry.preset->isFactory() ? "factory" : "user");
        if (presets.empty())
            std::fprintf(stderr, "varitap-render: no presets in %s or %s\n",
                         factoryPresetsPath(plugin->location().bundle).c_str(), userPresetsPath().c_str());
        return 0;
    }

    // The input first: its sample rate matters for the displays.
    std::unique_ptr<AudioSource> source;
    std::string inputName = "demo signal";
    if (!options.input.empty()) {
        auto file = FileSource::open(options.input, error);
        if (!file) return fail(options.input, error);
        source = std::move(file);
        inputName = options.input;
    } else if (!options.listParams) {
        source = std::make_unique<MemorySource>(makeDemoSignal(options.demoRate, options.tempo),
                                                kDemoChannels, options.demoRate);
    }

    if (!options.preset.empty()) {
        varitap::Preset* preset = findPreset(*library, options.preset);
        if (!preset) {
            std::string bundle = plugin->location().bundle;
            return fail("preset " + quoted(options.preset),
                        "not found in " + (bundle.empty() ? std::string("(no bundle)") : factoryPresetsPath(bundle)) +
                            " or " + userPresetsPath() + " (see --list-presets)");
        }
        applyPreset(*plugin, *preset);
    }
    if (!applySettings(*plugin, options.settings, error)) {
        std::fprintf(stderr, "varitap-render: %s\n", error.c_str());  // names the parameter itself
        return kExitFailure;
    }

    if (options.listParams) {
        if (source) plugin->setSampleRate(source->sampleRate());
        listParameters(*plugin);
        return 0;
    }

    RenderSettings settings;
    settings.tempo = options.tempo;
    settings.blockSize = options.blockSize;
    settings.tailSeconds = options.tailSeconds;
    settings.progress = !options.quiet && ::isatty(STDERR_FILENO);

    if (!options.benchPlugin.empty()) {
        std::unique_ptr<HostedPlugin> other = loadPlugin(options.benchPlugin, error);
        if (!other) return fail(options.benchPlugin, error);
        if (other->numOutputs() < 1) return fail(options.benchPlugin, "the plug-in has no audio outputs");
        if (!applySettings(*other, options.benchSettings, error)) {
            std::fprintf(stderr, "varitap-render: %s\n", error.c_str());
            return kExitFailure;
        }
        std::unique_ptr<MemorySource> memory;
        if (auto* file = dynamic_cast<FileSource*>(source.get()))
            memory = file->readAll();
        else
            memory.reset(static_cast<MemorySource*>(source.release()));
        BenchResult bench = benchmark(*plugin, *other, *memory, settings, options.benchRounds);
        if (bench.secondsA.empty() || bench.secondsB.empty()) return fail("--bench", "a plug-in failed to render");
        std::printf("bench: %s, %.2f s of audio, block %d, %d runs each (A B A B ...), processor time in the process calls\n",
                    inputName.c_str(), bench.audioSeconds, settings.blockSize, options.benchRounds);
        std::printf("A: %s\n", describePlugin(*plugin).c_str());
        std::printf("B: %s\n", describePlugin(*other).c_str());
        for (size_t i = 0; i < bench.secondsA.size() && i < bench.secondsB.size(); ++i)
            std::printf("run %zu: A %.3f ms  B %.3f ms\n", i + 1, bench.secondsA[i] * 1e3, bench.secondsB[i] * 1e3);
        std::printf("A best: %.3f ms (%.0fx real time)\n", bench.bestA * 1e3,
                    bench.bestA > 0 ? bench.audioSeconds / bench.bestA : 0.0);
        std::printf("B best: %.3f ms (%.0fx real time)\n", bench.bestB * 1e3,
                    bench.bestB > 0 ? bench.audioSeconds / bench.bestB : 0.0);
        std::printf("cost ratio A/B: %.3f\n", bench.ratio);
        return 0;
    }

    const int outputChannels = outputChannelCount(plugin->numOutputs(), source->channels());
    const int rate = static_cast<int>(source->sampleRate());
    if (!options.plot.empty() && !folderWritable(options.plot, error)) return fail(options.plot, error);
    AtomicAudioWriter writer;
    if (!writer.open(options.output, outputChannels, rate, error)) return fail(options.output, error);

    const int64_t tailFrames = static_cast<int64_t>(settings.tailSeconds * source->sampleRate());
    std::unique_ptr<WaveformPlot> plot;
    if (!options.plot.empty())
        plot = std::make_unique<WaveformPlot>(source->channels(), outputChannels, source->frames() + tailFrames,
                                              source->sampleRate(), settings.tempo, options.spectrogram);
    catchStopRequests();
    BlockSink sink = [&](const float* input, const float* output, int frames) {
        if (gStopRequested) return false;
        if (plot) plot->add(input, output, frames);
        return writer.write(output, frames);
    };
    RenderResult result;
    if (!renderSource(*plugin, *source, settings, outputChannels, sink, result, error)) {
        if (gStopRequested) {
            fail(options.output, "interrupted; nothing was written");
            return kExitInterrupted;
        }
        return fail(options.output, error);
    }
    if (!writer.commit(error)) return fail(options.output, error);
    if (plot) {
        std::string title = inputName + " through " + describePlugin(*plugin);
        if (!options.preset.empty()) title += ", preset " + options.preset;
        char tempo[48];
        std::snprintf(tempo, sizeof(tempo), ", %g BPM", settings.tempo);
        if (!plot->write(options.plot, title + tempo, error)) return fail(options.plot, error);
    }
    if (!options.quiet) {
        std::printf("input:   %s (%d ch, %d Hz, %.2f s)\n", inputName.c_str(), source->channels(), rate,
                    static_cast<double>(source->frames()) / rate);
        std::printf("plug-in: %s%s\n", describePlugin(*plugin).c_str(),
                    options.preset.empty() ? "" : (", preset " + quoted(options.preset)).c_str());
        std::printf("output:  %s (%d ch, %.2f s with %.2f s tail)\n", options.output.c_str(), outputChannels,
                    result.audioSeconds, settings.tailSeconds);
        if (plot) std::printf("plot:    %s\n", options.plot.c_str());
        std::printf("speed:   %.0fx real time (%.2f s of audio, %.4f s in the plug-in, %.4f s in all)\n",
                    result.realTimeFactor(), result.audioSeconds, result.processSeconds, result.wallSeconds);
    }
    return 0;
}

}  // namespace render
