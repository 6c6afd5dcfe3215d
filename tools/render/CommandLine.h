// varitap-render's command line: what to load, what to render and how.
#pragma once

#include <string>
#include <vector>

namespace render {

// One --set: a parameter by index ("21=0.5") or by the name the plug-in
// gives it ("#1: Delay=0.5").
struct ParameterSetting {
    std::string target;  // as written, for messages
    int index = -1;      // when given by number
    float value = 0.0f;
};

struct Options {
    std::string input;  // empty: the demo signal
    std::string output;
    std::string plugin;  // empty: Varitap's bundle
    std::string preset;
    std::vector<ParameterSetting> settings;
    double tempo = 120.0;
    int blockSize = 512;
    double tailSeconds = 2.0;
    int demoRate = 44100;
    std::string plot;
    bool spectrogram = true;
    bool listParams = false;
    bool listPresets = false;
    std::string benchPlugin;  // plug-in B of --bench
    std::vector<ParameterSetting> benchSettings;  // --bench-set: plug-in B's parameters
    std::string checkClap;    // the .clap of --check-clap
    int benchRounds = 4;
    bool quiet = false;
    bool help = false;
};

// False with error set ("--tempo: 'x' is not a number") for a malformed line.
bool parseCommandLine(int argc, const char* const* argv, Options& options, std::string& error);

// "NAME=VALUE" or "INDEX=VALUE", split at the last '=' so that names may
// hold one.
bool parseSetting(const std::string& text, ParameterSetting& setting, std::string& error);

// The default output: the demo goes to varitap-demo.wav in the current
// folder; a file X.ext to X.rendered.ext beside it.
std::string defaultOutputPath(const std::string& input);

const char* usageText();

}  // namespace render
