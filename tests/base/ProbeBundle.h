// A temporary bundle laid out like Varitap.vst, holding a copy of the probe
// library (a small .so linked with the base layer) and a string table, for
// the tests of the bundle lookup and of localize.
#pragma once

#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace varitap::test {

inline bool makeFolders(const std::string& path) {
    std::error_code ignored;
    std::filesystem::create_directories(path, ignored);
    return std::filesystem::is_directory(path, ignored);
}

inline bool copyFile(const std::string& from, const std::string& to) {
    std::error_code failed;
    return std::filesystem::copy_file(from, to, failed);
}

inline std::string realPath(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::canonical(path, ignored).string();
}

// Makes <root>/<name>.vst with the probe at Contents/<arch>-linux/<name>.so.
struct ProbeBundle {
    ProbeBundle(const std::string& root, const std::string& name)
        : bundle(root + "/" + name + ".vst"), library(bundle + "/Contents/" VARITAP_ARCH_DIR "/" + name + ".so") {
        const std::string messages = bundle + "/Contents/Resources/locale/de/LC_MESSAGES";
        ok = makeFolders(bundle + "/Contents/" VARITAP_ARCH_DIR) && makeFolders(messages) &&
             copyFile(VARITAP_PROBE_LIBRARY, library) && copyFile(VARITAP_PROBE_CATALOGUE, messages + "/varitap.mo");
    }
    std::string bundle;
    std::string library;
    bool ok = false;
};

// The probe loaded from one path; unloaded again at the end of the scope.
class LoadedProbe {
public:
    explicit LoadedProbe(const std::string& path) : handle_(::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (handle_) {
            bundle_ = reinterpret_cast<const char* (*)()>(::dlsym(handle_, "varitapProbeBundle"));
            localize_ = reinterpret_cast<const char* (*)(const char*)>(::dlsym(handle_, "varitapProbeLocalize"));
        }
    }
    ~LoadedProbe() {
        if (handle_) ::dlclose(handle_);
    }
    LoadedProbe(const LoadedProbe&) = delete;
    LoadedProbe& operator=(const LoadedProbe&) = delete;

    bool ok() const { return bundle_ && localize_; }
    std::string bundle() const { return bundle_(); }
    const char* localize(const char* text) const { return localize_(text); }

private:
    void* handle_;
    const char* (*bundle_)() = nullptr;
    const char* (*localize_)(const char*) = nullptr;
};

}  // namespace varitap::test
