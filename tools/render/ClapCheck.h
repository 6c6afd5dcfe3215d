// A strict CLAP host: loads a .clap through clap_entry and runs the checks a
// validator runs on a plug-in (entry and factory, descriptor and features,
// audio ports, every parameter's info and text conversions both ways, hostile
// parameter values with processing in between, state saved and loaded in
// short chunks into a fresh instance with the same values and output,
// garbage state refused, in-place and out-of-place processing, activation at
// rates 8000..384000 Hz with blocks 1..4096).
#pragma once

#include <string>
#include <vector>

namespace render {

// Every failed check as one line; empty when the plug-in passes.
std::vector<std::string> checkClapPlugin(const std::string& path);

}  // namespace render
