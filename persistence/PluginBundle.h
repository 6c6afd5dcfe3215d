// Where the plug-in's own bundle lives, and the resources inside it:
//   Varitap.vst/Contents/<arch>-linux/Varitap.so
//   Varitap.vst/Contents/Resources/<name>.<type>
// (the LV2 bundle Varitap.lv2 has the same Contents).
#pragma once

#include <string>
#include <vector>

namespace varitap {

// The bundle directory of the shared object this code is linked into,
// through realpath (hosts may load through relative or symlinked paths);
// empty when it cannot be found.
std::string copyPluginBundle();

// <bundle>/Contents/Resources/<name>.<type> when that file exists, else empty.
std::string bundleResourcePath(const std::string& bundle, const char* name, const char* type);

// Paths of the files ending in ".<type>" in <bundle>/Contents/Resources/<subfolder>,
// sorted by file name; empty when there are none.
std::vector<std::string> bundleResources(const std::string& bundle, const char* type,
                                         const char* subfolder);

}  // namespace varitap
