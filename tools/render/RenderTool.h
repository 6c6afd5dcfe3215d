// varitap-render from its command line to its exit status: loads the
// plug-in, applies preset and settings, renders, writes, plots, lists or
// benchmarks. Errors are one line on stderr naming the thing and the reason.
#pragma once

#include "tools/render/CommandLine.h"

#include <string>

namespace render {

class HostedPlugin;

// Resolves names, checks ranges (HostedPlugin::parameterRange) and sets the
// values in order. False with error set ("parameter \"X\": ...") before
// anything is set when one fails.
bool applySettings(HostedPlugin& plugin, const std::vector<ParameterSetting>& settings,
                   std::string& error);

// The whole program; returns the exit status (0 success, 1 bad input or a
// failed render, 2 a malformed command line).
int runRenderTool(int argc, const char* const* argv);

}  // namespace render
