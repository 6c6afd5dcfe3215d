#include "editor/BackgroundEntry.h"

#include <cstring>

#include "persistence/PluginBundle.h"
#include "persistence/Preferences.h"

namespace varitap {

BackgroundEntry::BackgroundEntry(const char* path) {
    path_[0] = '\0';
    if (!path) return;
    const size_t length = std::strlen(path);
    if (length > kMaxPathBytes) return;
    std::memcpy(path_, path, length + 1);
}

const char* BackgroundEntry::fileName() const {
    const char* slash = std::strrchr(path_, '/');
    return slash ? slash + 1 : path_;
}

std::string BackgroundEntry::displayName() const {
    const char* name = fileName();
    const char* dot = std::strrchr(name, '.');
    return dot ? std::string(name, static_cast<size_t>(dot - name)) : std::string(name);
}

bool BackgroundEntry::appendPathComponent(const char* name) {
    if (!name) return false;
    const size_t length = std::strlen(path_);
    const size_t added = std::strlen(name);
    if (length + 1 + added > kMaxPathBytes) return false;
    path_[length] = '/';
    std::memcpy(path_ + length + 1, name, added + 1);
    return true;
}

std::string wantedBackgroundName(Preferences& preferences) {
    // A 1024-byte buffer like the paths'; getString leaves the default in it
    // when nothing that fits is stored.
    char buffer[BackgroundEntry::kMaxPathBytes + 1];
    preferences.getString(kOptionBackgroundBitmap, buffer, sizeof buffer, kDefaultBackgroundName);
    buffer[sizeof buffer - 1] = '\0';
    return buffer;
}

RefPtr<BackgroundEntry> gatherBackgrounds(const std::string& bundle, const char* wantedName,
                                          ObjectList& list) {
    list.removeAll();
    RefPtr<BackgroundEntry> chosen;
    RefPtr<BackgroundEntry> first;
    for (const std::string& path : bundleResources(bundle, "png", "Backgrounds")) {
        // Paths that do not fit the entry's buffer cannot be formed: skip them
        // rather than list an entry that names no file.
        if (path.size() > BackgroundEntry::kMaxPathBytes) continue;
        auto entry = makeRef<BackgroundEntry>(path.c_str());
        if (!first) first = entry;
        if (!chosen && wantedName && std::strcmp(entry->fileName(), wantedName) == 0) chosen = entry;
        list.append(entry.get());
    }
    return chosen ? chosen : first;
}

}  // namespace varitap
