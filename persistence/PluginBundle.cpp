#include "persistence/PluginBundle.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace varitap {

namespace {

// A symbol of our own image: its address tells dladdr which loaded object
// this code lives in (the plug-in's .so, or a program that links it directly).
void anchor() {}

bool isRegularFile(const std::string& path) {
    struct stat info;
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// path without its last component; empty when there is none left to remove
// (the root, or a bare name).
std::string parentOf(const std::string& path) {
    size_t end = path.size();
    while (end > 1 && path[end - 1] == '/') --end;
    const size_t slash = path.rfind('/', end - 1);
    if (slash == std::string::npos || end <= 1) return std::string();
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

}  // namespace

std::string copyPluginBundle() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&anchor), &info) == 0 || !info.dli_fname || !*info.dli_fname)
        return std::string();
    // Hosts may load through a relative or symlinked path: resolve it to the
    // real file inside the bundle first.
    char* real = ::realpath(info.dli_fname, nullptr);
    if (!real) return std::string();
    std::string path(real);
    std::free(real);
    // Varitap.vst/Contents/<arch>-linux/Varitap.so: three steps up.
    for (int step = 0; step < 3; ++step) {
        if (path == "/") return std::string();
        path = parentOf(path);
        if (path.empty()) return std::string();
    }
    return path;
}

std::string bundleResourcePath(const std::string& bundle, const char* name, const char* type) {
    if (bundle.empty() || !name || !*name || !type) return std::string();
    std::string path = bundle + "/Contents/Resources/" + name;
    if (*type) path += std::string(".") + type;
    return isRegularFile(path) ? path : std::string();
}

std::vector<std::string> bundleResources(const std::string& bundle, const char* type, const char* subfolder) {
    std::vector<std::string> found;
    if (bundle.empty() || !type) return found;
    std::string folder = bundle + "/Contents/Resources";
    if (subfolder && *subfolder) folder += std::string("/") + subfolder;
    DIR* directory = ::opendir(folder.c_str());
    if (!directory) return found;
    const std::string suffix = std::string(".") + type;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        // The suffix alone (a hidden file such as ".png") names nothing.
        if (name.size() <= suffix.size() || name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
            continue;
        if (isRegularFile(folder + "/" + name)) names.push_back(name);
    }
    ::closedir(directory);
    // readdir's order depends on the file system: sort so that every machine
    // lists the same files in the same order.
    std::sort(names.begin(), names.end());
    found.reserve(names.size());
    for (const std::string& name : names) found.push_back(folder + "/" + name);
    return found;
}

}  // namespace varitap
