// Where the presets files live on this system, kept apart from the library
// itself so that the library can be used with explicit paths alone.
#include "persistence/PluginBundle.h"
#include "persistence/PresetLibrary.h"
#include "persistence/Preferences.h"

namespace varitap {

std::string PresetLibrary::userPresetsPath() {
    const std::string folder = userConfigDirectory();
    if (folder.empty()) return std::string();
    return folder + "/" + kUserPresetsFileName;
}

std::string PresetLibrary::factoryPresetsPath() {
    const std::string bundle = copyPluginBundle();
    if (bundle.empty()) return std::string();
    std::string path = bundleResourcePath(bundle, kFactoryPresetsResource, kFactoryPresetsType);
    // Paths longer than the platform's 1024-byte limit are not followed.
    if (path.size() >= 1024) path.clear();
    return path;
}

PresetLibrary* PresetLibrary::acquireForInstance() {
    if (PresetLibrary* library = current()) {
        library->retain();
        return library;
    }
    return acquireForInstance(factoryPresetsPath(), userPresetsPath());
}

}  // namespace varitap
