// A temporary bundle laid out like Varitap.vst, holding a copy of the probe
// library (a small .so linked with the base layer), a string table and a few
// resources, for the tests of the bundle lookup and of localize.
#pragma once

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "TestSupport.h"

namespace varitap::test {

inline bool makeFolders(const std::string& path) {
    for (size_t slash = 1; slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (!part.empty() && ::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
    }
    return ::mkdir(path.c_str(), 0755) == 0 || errno == EEXIST;
}

inline bool copyFile(const std::string& from, const std::string& to) {
    const std::string bytes = readFile(from);
    return !bytes.empty() && writeFile(to, bytes);
}

class ProbeBundle {
public:
    // Makes <root>/<name>.vst with the probe at Contents/<arch>-linux/.
    ProbeBundle(const std::string& root, const std::string& name)
        : bundle_(root + "/" + name + ".vst"),
          library_(bundle_ + "/Contents/" VARITAP_ARCH_DIR "/" + name + ".so") {
        const std::string resources = bundle_ + "/Contents/Resources";
        ok_ = makeFolders(bundle_ + "/Contents/" VARITAP_ARCH_DIR) &&
              makeFolders(resources + "/locale/de/LC_MESSAGES") &&
              copyFile(VARITAP_PROBE_LIBRARY, library_) &&
              copyFile(VARITAP_PROBE_CATALOGUE, resources + "/locale/de/LC_MESSAGES/varitap.mo");
    }

    bool ok() const { return ok_; }
    const std::string& bundle() const { return bundle_; }
    const std::string& library() const { return library_; }

private:
    std::string bundle_;
    std::string library_;
    bool ok_ = false;
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

inline std::string realPath(const std::string& path) {
    char* real = ::realpath(path.c_str(), nullptr);
    std::string result = real ? real : "";
    ::free(real);
    return result;
}

}  // namespace varitap::test
