// A small shared library linked with the base layer, loaded by the tests
// from a temporary bundle: it answers with the bundle it finds itself in and
// with the words localize() gives it, exactly as the plug-in would.
#include <cstring>
#include <string>

#include "persistence/Localize.h"
#include "persistence/PluginBundle.h"

extern "C" {

__attribute__((visibility("default"))) const char* varitapProbeBundle() {
    static char found[4096];
    const std::string bundle = varitap::copyPluginBundle();
    std::strncpy(found, bundle.c_str(), sizeof(found) - 1);
    return found;
}

__attribute__((visibility("default"))) const char* varitapProbeLocalize(const char* text) {
    return varitap::localize(text);
}

}  // extern "C"
