// A temporary bundle laid out like Varitap.vst, holding a copy of the probe
// library (a small .so linked with the base layer) and a string table, for
// the tests of the bundle lookup and of localize.
#pragma once

#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace varitap::test {

// Makes <root>/<name>.vst with the probe at Contents/<arch>-linux/<name>.so.
struct ProbeBundle {
    ProbeBundle(const std::string& root, const std::string& name)
        : bundle(root + "/" + name + ".vst"), library(bundle + "/Contents/" VARITAP_ARCH_DIR "/" + name + ".so") {
        const std::string messages = bundle + "/Contents/Resources/locale/de/LC_MESSAGES";
        std::filesystem::create_directories(bundle + "/Contents/" VARITAP_ARCH_DIR);
        std::filesystem::create_directories(messages);
        std::filesystem::copy_file(VARITAP_PROBE_LIBRARY, library);
        std::filesystem::copy_file(VARITAP_PROBE_CATALOGUE, messages + "/varitap.mo");
    }
    std::string bundle;
    std::string library;
};

// The probe loaded from one path; unloaded again at the end of the scope.
struct LoadedProbe {
    explicit LoadedProbe(const std::string& path) : handle(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle) bundle = reinterpret_cast<const char* (*)()>(::dlsym(handle, "varitapProbeBundle"));
        if (handle) localize = reinterpret_cast<const char* (*)(const char*)>(::dlsym(handle, "varitapProbeLocalize"));
    }
    ~LoadedProbe() {
        if (handle) ::dlclose(handle);
    }
    LoadedProbe(const LoadedProbe&) = delete;
    LoadedProbe& operator=(const LoadedProbe&) = delete;
    bool ok() const { return bundle && localize; }

    void* handle;
    const char* (*bundle)() = nullptr;
    const char* (*localize)(const char*) = nullptr;
};

}  // namespace varitap::test
