#include "tools/render/CommandLine.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace render {

namespace {

bool parseNumber(const std::string& text, double& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtod(text.c_str(), &end);
    return errno == 0 && end && *end == 0 && std::isfinite(value);
}

bool parseInteger(const std::string& text, long& value) {
    if (text.empty()) return false;
    char* end = nullptr;
    errno = 0;
    value = std::strtol(text.c_str(), &end, 10);
    return errno == 0 && end && *end == 0;
}

bool allDigits(const std::string& text) {
    if (text.empty()) return false;
    for (char c : text)
        if (c < '0' || c > '9') return false;
    return true;
}

}  // namespace

const char* usageText() {
    return "usage: varitap-render [INPUT] [options]\n"
           "Renders INPUT (any audio file libsndfile reads) through Varitap or another VST 2\n"
           "or CLAP plug-in. Without INPUT it renders a short demo signal of its own.\n"
           "\n"
           "  -o, --output FILE     output file; the format follows its extension\n"
           "                        (default: X.rendered.EXT beside INPUT, varitap-demo.wav for the demo)\n"
           "  --plugin PATH         a .so or .clap file or its bundle folder (default: the built Varitap)\n"
           "  --preset FOLDER/NAME  a preset from Varitap's factory or user library\n"
           "  --set INDEX=VALUE     set a parameter by number (repeatable; after --preset)\n"
           "  --set \"NAME=VALUE\"    set a parameter by its name as hosts show it\n"
           "  --tempo BPM           host tempo, transport playing from sample 0 (default 120)\n"
           "  --block N             block size in samples, 1..44100 (default 512)\n"
           "  --tail SECONDS        keep rendering after the input ends (default 2)\n"
           "  --rate HZ             sample rate of the demo signal (default 44100)\n"
           "  --plot FILE.png       draw input and output waveforms and a spectrogram\n"
           "  --no-spectrogram      leave the spectrogram out of the plot\n"
           "  --list-params         print index, name, display and label of every parameter\n"
           "  --list-presets        print the presets as FOLDER/NAME\n"
           "  --bench PLUGIN_B      time the plug-in (A, with its preset and settings) against\n"
           "                        PLUGIN_B, alternating A B A B; writes no audio\n"
           "  --bench-set NAME=VALUE  set a parameter of PLUGIN_B, as --set does for A (repeatable)\n"
           "  --rounds N            runs of each plug-in in --bench (default 4)\n"
           "  --check-clap FILE     run a strict host's checks on a .clap plug-in; prints\n"
           "                        each failed check, exit status 1 when one fails\n"
           "  -q, --quiet           print nothing but errors\n"
           "  -h, --help            this text\n";
}

bool parseSetting(const std::string& text, ParameterSetting& setting, std::string& error) {
    auto equals = text.find_last_of('=');
    if (equals == std::string::npos || equals == 0) {
        error = "--set: '" + text + "' is not NAME=VALUE or INDEX=VALUE";
        return false;
    }
    setting.target = text.substr(0, equals);
    std::string valueText = text.substr(equals + 1);
    double value = 0.0;
    if (!parseNumber(valueText, value)) {
        error = "--set " + setting.target + ": '" + valueText + "' is not a number";
        return false;
    }
    setting.value = static_cast<float>(value);
    setting.index = -1;
    if (allDigits(setting.target)) {
        long index = 0;
        if (!parseInteger(setting.target, index) || index > 1000000) {
            error = "--set: parameter " + setting.target + " does not exist";
            return false;
        }
        setting.index = static_cast<int>(index);
    }
    return true;
}

std::string defaultOutputPath(const std::string& input) {
    if (input.empty()) return "varitap-demo.wav";
    auto slash = input.find_last_of('/');
    auto dot = input.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) || dot == slash + 1)
        return input + ".rendered.wav";
    return input.substr(0, dot) + ".rendered" + input.substr(dot);
}

bool parseCommandLine(int argc, const char* const* argv, Options& options, std::string& error) {
    options = Options{};
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::string inlineValue;
        bool hasInline = false;
        if (arg.rfind("--", 0) == 0) {
            auto equals = arg.find('=');
            if (equals != std::string::npos) {
                inlineValue = arg.substr(equals + 1);
                arg.resize(equals);
                hasInline = true;
            }
        }
        auto value = [&](std::string& out) {
            if (hasInline) {
                out = inlineValue;
                return true;
            }
            if (i + 1 >= argc) {
                error = arg + ": a value is missing";
                return false;
            }
            out = argv[++i];
            return true;
        };
        auto number = [&](double& out, double low, double high, const char* what) {
            std::string text;
            if (!value(text)) return false;
            if (!parseNumber(text, out)) {
                error = arg + ": '" + text + "' is not a number";
                return false;
            }
            if (out < low || out > high) {
                error = arg + ": " + text + " is outside " + what;
                return false;
            }
            return true;
        };
        double n = 0.0;
        if (arg == "-h" || arg == "--help") {
            options.help = true;
        } else if (arg == "-q" || arg == "--quiet") {
            options.quiet = true;
        } else if (arg == "-o" || arg == "--output") {
            if (!value(options.output)) return false;
        } else if (arg == "--plugin") {
            if (!value(options.plugin)) return false;
        } else if (arg == "--preset") {
            if (!value(options.preset)) return false;
        } else if (arg == "--set" || arg == "--bench-set") {
            std::string text;
            ParameterSetting setting;
            if (!value(text) || !parseSetting(text, setting, error)) return false;
            (arg == "--set" ? options.settings : options.benchSettings).push_back(setting);
        } else if (arg == "--tempo") {
            if (!number(options.tempo, 1.0, 999.0, "1..999 beats per minute")) return false;
        } else if (arg == "--block") {
            if (!number(n, 1, 44100, "1..44100 samples")) return false;
            if (n != std::floor(n)) {
                error = "--block: a whole number of samples is needed";
                return false;
            }
            options.blockSize = static_cast<int>(n);
        } else if (arg == "--tail") {
            if (!number(options.tailSeconds, 0.0, 3600.0, "0..3600 seconds")) return false;
        } else if (arg == "--rate") {
            if (!number(n, 8000, 384000, "8000..384000 Hz")) return false;
            options.demoRate = static_cast<int>(n);
        } else if (arg == "--plot") {
            if (!value(options.plot)) return false;
        } else if (arg == "--no-spectrogram") {
            options.spectrogram = false;
        } else if (arg == "--list-params") {
            options.listParams = true;
        } else if (arg == "--list-presets") {
            options.listPresets = true;
        } else if (arg == "--bench") {
            if (!value(options.benchPlugin)) return false;
        } else if (arg == "--check-clap") {
            if (!value(options.checkClap)) return false;
        } else if (arg == "--rounds") {
            if (!number(n, 1, 1000, "1..1000")) return false;
            options.benchRounds = static_cast<int>(n);
        } else if (arg.size() > 1 && arg[0] == '-') {
            error = arg + ": unknown option (see --help)";
            return false;
        } else if (options.input.empty()) {
            options.input = arg;
        } else {
            error = arg + ": only one input file can be rendered at a time";
            return false;
        }
    }
    if (options.output.empty()) options.output = defaultOutputPath(options.input);
    return true;
}

}  // namespace render
