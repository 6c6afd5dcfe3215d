// varitap-render from its command line to its exit status: loads the
// plug-in, applies preset and settings, renders, writes, plots, lists or
// benchmarks. Errors are one line on stderr naming the thing and the reason.
#pragma once

#include "tools/render/CommandLine.h"

#include <string>

namespace render {

class PluginInstance;

// The range a parameter's value must lie in. Every VST 2 parameter is 0..1,
// except Varitap's modulator "Index" parameters, which carry the number of
// the parameter they move (0..240).
void parameterRange(const PluginInstance& plugin, int index, float& low, float& high);

// Resolves names, checks ranges and sets the values in order. False with
// error set ("parameter \"X\": ...") before anything is set when one fails.
bool applySettings(PluginInstance& plugin, const std::vector<ParameterSetting>& settings,
                   std::string& error);

// The whole program; returns the exit status (0 success, 1 bad input or a
// failed render, 2 a malformed command line).
int runRenderTool(int argc, const char* const* argv);

}  // namespace render
