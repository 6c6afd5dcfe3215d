// The signal rendered when no input file is given: two bars of plucked notes
// and a soft kick on an eighth-note grid, stereo, so that a new user hears
// where the echoes fall at once.
#pragma once

#include <vector>

namespace render {

constexpr int kDemoChannels = 2;

// Interleaved stereo frames: two bars of 4/4 at the tempo, plucks panned left
// and right in turn, peaks at about -6 dBFS. The same arguments give the same
// samples on every run.
std::vector<float> makeDemoSignal(double sampleRate, double tempo);

}  // namespace render
