#include "persistence/PresetLibrary.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "persistence/ByteStream.h"
#include "persistence/FolderLock.h"
#include "persistence/PresetXmlReader.h"
#include "persistence/XmlPropertyWriter.h"

namespace varitap {

namespace {

PresetLibrary* sharedLibrary = nullptr;

std::string parentFolder(const std::string& path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// mkdir -p with owner-only permissions: $HOME/.config may not exist yet.
bool makeFolders(const std::string& folder) {
    struct stat info;
    if (stat(folder.c_str(), &info) == 0) return S_ISDIR(info.st_mode);
    const std::string parent = parentFolder(folder);
    if (parent != folder && !makeFolders(parent)) return false;
    return mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST;
}

// Makes the rename durable: a crash after saving finds the new file, not an
// empty directory entry.
void syncFolder(const std::string& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    fsync(descriptor);
    close(descriptor);
}

// Keeps the file at path beside it as path.bak (replacing an older .bak).
// A hard link keeps path in place until the new file is renamed over it;
// where links are not supported the file is moved instead.
void keepAsBackup(const std::string& path) {
    const std::string backup = path + ".bak";
    unlink(backup.c_str());
    if (link(path.c_str(), backup.c_str()) != 0) rename(path.c_str(), backup.c_str());
}

// A preset as the file writes it: two presets with the same text are the
// same preset to the file.
std::string presetText(Preset& preset) {
    PropertyList entries;
    preset.writeProperties(entries);
    RefPtr<PropertyValue> array = RefPtr<PropertyValue>::adopt(PropertyValue::makeArray("preset", entries));
    auto stream = makeRef<StringOutputStream>();
    makeRef<XmlPropertyWriter>(stream.get())->writeProperty(array.get());
    return stream->text();
}

// For each record of base, the index of its partner in now, or -1. Each
// record of now partners at most one, taken in order: first among the records
// that are the same, then among those that are only alike.
template <class Record, class Same, class Alike>
std::vector<int> pairRecords(const std::vector<Record>& base, const std::vector<Record>& now, Same same,
                             Alike alike) {
    std::vector<int> pairs(base.size(), -1);
    std::vector<bool> taken(now.size(), false);
    for (int pass = 0; pass < 2; ++pass) {
        for (size_t b = 0; b < base.size(); ++b) {
            for (size_t n = 0; n < now.size() && pairs[b] < 0; ++n) {
                if (taken[n] || !(pass == 0 ? same(base[b], now[n]) : alike(base[b], now[n]))) continue;
                pairs[b] = static_cast<int>(n);
                taken[n] = true;
            }
        }
    }
    return pairs;
}

}  // namespace

PresetLibrary::PresetLibrary() = default;

PresetLibrary::~PresetLibrary() {
    if (sharedLibrary == this) sharedLibrary = nullptr;
}

bool PresetLibrary::writeProperties(PropertyList& list) {
    for (uint32_t i = 0, n = folders_.count(); i < n; ++i) {
        PresetFolder* folder = folderAt(i);
        if (folder->isFactory()) continue;
        PropertyList temporary;
        folder->writeProperties(temporary);
        PropertyValue* array = PropertyValue::makeArray("folder", temporary);
        list.append(array);
        array->release();
    }
    return true;
}

bool PresetLibrary::readProperties(PropertyList& list) {
    for (uint32_t i = 0, n = list.count(); i < n; ++i) {
        PropertyValue* value = list.at(i);
        if (value->key() != "folder") continue;
        auto* folder = new PresetFolder(nullptr, loadingFactory_ ? kFactory : 0);
        PropertyList* entries = value->getArray();
        // A "folder" that is not an array reads as an empty folder.
        PropertyList empty;
        if (!folder->readProperties(entries ? *entries : empty)) {
            folder->release();
            return false;
        }
        folders_.append(folder);
        folder->release();
    }
    return true;
}

PresetFolder* PresetLibrary::addFolder(const char* name) {
    auto* folder = new PresetFolder(name, 0);
    folders_.append(folder);
    folder->release();
    return folder;
}

bool PresetLibrary::removeFolder(PresetFolder* folder) { return folders_.remove(folder); }

bool PresetLibrary::loadFile(const std::string& path, bool factory) {
    const FileState state = readFile(path, factory);
    return state != FileState::kMissing && state != FileState::kUnopenable;
}

PresetLibrary::FileState PresetLibrary::readFile(const std::string& path, bool factory) {
    if (path.empty()) return FileState::kMissing;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        // A file that is there but cannot be opened (permissions, an I/O
        // error) may still hold the user's presets.
        return errno == ENOENT || errno == ENOTDIR ? FileState::kMissing : FileState::kUnopenable;
    }

    FileState state = FileState::kNotPresets;
    {
        RefPtr<FileStream> stream = makeRef<FileStream>(descriptor);
        RefPtr<PresetXmlReader> reader = makeRef<PresetXmlReader>(stream.get());
        reader->parse();
        if (PropertyList* result = reader->result()) {
            loadingFactory_ = factory;
            readProperties(*result);
            loadingFactory_ = false;
            state = FileState::kLoaded;
        }
    }

    struct stat info;
    if (state != FileState::kLoaded && fstat(descriptor, &info) == 0 && info.st_size == 0) {
        state = FileState::kEmpty;
    }
    close(descriptor);
    return state;
}

bool PresetLibrary::saveFile(const std::string& path) { return writeFile(path, false); }

bool PresetLibrary::writeFile(const std::string& path, bool keepOldAsBackup) {
    if (path.empty()) return false;
    PropertyList list;
    if (!writeProperties(list)) return false;

    // A user file that is a symbolic link (dotfile managers keep them) is
    // replaced where it really lives, so the link stays a link.
    std::string target = path;
    struct stat info;
    if (lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode)) {
        if (char* resolved = realpath(path.c_str(), nullptr)) {
            target = resolved;
            free(resolved);
        }
    }
    const std::string folder = parentFolder(target);
    if (!makeFolders(folder)) return false;
    std::string temporary = folder + "/." + lastComponent(target) + ".XXXXXX";
    const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);  // mode 0600
    if (descriptor < 0) return false;

    bool ok;
    {
        RefPtr<FileStream> stream = makeRef<FileStream>(descriptor);
        RefPtr<XmlPropertyWriter> writer = makeRef<XmlPropertyWriter>(stream.get());
        PropertyList attributes;
        PropertyValue* version = PropertyValue::makeLong("version", 1);
        attributes.append(version);
        version->release();
        ok = writer->writeOpenTag("Presets", &attributes, false);
        // Every value is attempted, as a save has always done; any failure
        // keeps the old file.
        for (uint32_t i = 0, n = list.count(); i < n; ++i) {
            ok = writer->writeProperty(list.at(i)) && ok;
        }
        ok = writer->writeCloseTag("Presets") && ok;
        // A short write is not an error to the stream; the file's length
        // tells whether every byte arrived.
        const off_t length = lseek(descriptor, 0, SEEK_CUR);
        ok = ok && length >= 0 && static_cast<uint64_t>(length) == writer->bytesRequested();
    }
    ok = fsync(descriptor) == 0 && ok;
    ok = close(descriptor) == 0 && ok;
    if (!ok) {
        unlink(temporary.c_str());
        return false;
    }

    if (keepOldAsBackup) keepAsBackup(target);
    if (rename(temporary.c_str(), target.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    syncFolder(folder);
    return true;
}

PresetLibrary::Records PresetLibrary::snapshot() const {
    Records records;
    for (uint32_t i = 0, n = folders_.count(); i < n; ++i) {
        PresetFolder* folder = folderAt(i);
        if (folder->isFactory()) continue;
        FolderRecord record{RefPtr<PresetFolder>(folder), folder->getName(), {}};
        for (uint32_t p = 0, count = folder->presetCount(); p < count; ++p) {
            Preset* preset = folder->presetAt(p);
            record.presets.push_back({RefPtr<Preset>(preset), presetText(*preset)});
        }
        records.push_back(std::move(record));
    }
    return records;
}

bool PresetLibrary::hasChanges() const {
    auto samePreset = [](const PresetRecord& a, const PresetRecord& b) {
        return a.preset == b.preset && a.text == b.text;
    };
    auto sameFolder = [&](const FolderRecord& a, const FolderRecord& b) {
        return a.folder == b.folder && a.name == b.name &&
               std::equal(a.presets.begin(), a.presets.end(), b.presets.begin(), b.presets.end(), samePreset);
    };
    const Records now = snapshot();
    return !std::equal(now.begin(), now.end(), synced_.begin(), synced_.end(), sameFolder);
}

bool PresetLibrary::saveChanges() {
    if (userPath_.empty()) return false;
    if (!hasChanges()) return true;
    const std::string folder = parentFolder(userPath_);
    if (!makeFolders(folder)) return false;
    FolderLock lock(folder);

    // Only a file that reads as presets tells what others did; a missing,
    // empty or unreadable one is taken as unchanged, so nothing of this
    // library is lost to it.
    auto disk = makeRef<PresetLibrary>();
    const FileState state = disk->readFile(userPath_, false);
    const Records known = takeInChanges(state == FileState::kLoaded ? disk->snapshot() : synced_);
    const bool unreadable = state == FileState::kUnopenable || state == FileState::kNotPresets;
    if (!writeFile(userPath_, unreadable)) {
        // The file still holds what was read: later saves measure against it.
        synced_ = known;
        return false;
    }
    synced_ = snapshot();
    return true;
}

PresetLibrary::Records PresetLibrary::takeInChanges(const Records& theirs) {
    // A folder is known by its name, and among folders of one name by its
    // presets; a preset by its text.
    auto sameText = [](const PresetRecord& a, const PresetRecord& b) { return a.text == b.text; };
    auto sameName = [](const FolderRecord& a, const FolderRecord& b) { return a.name == b.name; };
    auto sameFolder = [&](const FolderRecord& a, const FolderRecord& b) {
        return sameName(a, b) && a.presets.size() == b.presets.size() &&
               std::equal(a.presets.begin(), a.presets.end(), b.presets.begin(), sameText);
    };
    const std::vector<int> folderPairs = pairRecords(synced_, theirs, sameFolder, sameName);
    Records known(theirs.size());
    std::vector<bool> paired(theirs.size(), false);
    for (size_t f = 0; f < synced_.size(); ++f) {
        const FolderRecord& base = synced_[f];
        PresetFolder* mine = folders_.contains(base.folder.get()) ? base.folder.get() : nullptr;
        if (folderPairs[f] < 0) {
            // Removed elsewhere: what it held goes, what this process added stays.
            if (!mine) continue;
            for (const PresetRecord& preset : base.presets) mine->removePreset(preset.preset.get());
            if (mine->presetCount() == 0) removeFolder(mine);
            continue;
        }
        const FolderRecord& now = theirs[static_cast<size_t>(folderPairs[f])];
        paired[static_cast<size_t>(folderPairs[f])] = true;
        const std::vector<int> presetPairs = pairRecords(base.presets, now.presets, sameText, sameText);
        FolderRecord& record = known[static_cast<size_t>(folderPairs[f])];
        record = {base.folder, now.name, now.presets};
        for (size_t p = 0; p < base.presets.size(); ++p) {
            if (presetPairs[p] >= 0) {
                record.presets[static_cast<size_t>(presetPairs[p])] = base.presets[p];
            } else if (mine) {
                mine->removePreset(base.presets[p].preset.get());  // removed elsewhere
            }
        }
        // Added elsewhere: the presets of now that no preset of base matched.
        PresetFolder* into = mine;
        for (size_t p = 0; p < now.presets.size(); ++p) {
            if (std::find(presetPairs.begin(), presetPairs.end(), static_cast<int>(p)) != presetPairs.end()) {
                continue;
            }
            // A folder this process removed comes back for what others added to it.
            if (!into) into = addFolder(now.name.c_str());
            into->addPreset(now.presets[p].preset.get());
        }
    }
    // Folders added elsewhere join at the end.
    for (size_t t = 0; t < theirs.size(); ++t) {
        if (paired[t]) continue;
        folders_.append(theirs[t].folder.get());
        known[t] = theirs[t];
    }
    return known;
}

PresetLibrary* PresetLibrary::current() { return sharedLibrary; }

PresetLibrary* PresetLibrary::acquireForInstance(const std::string& factoryPath,
                                                 const std::string& userPath) {
    if (sharedLibrary) {
        sharedLibrary->retain();
        return sharedLibrary;
    }
    auto* library = new PresetLibrary;
    library->userPath_ = userPath;
    library->loadFile(factoryPath, true);
    library->loadFile(userPath, false);
    library->synced_ = library->snapshot();
    sharedLibrary = library;
    return library;
}

void PresetLibrary::saveAndRelease() {
    PresetLibrary* library = sharedLibrary;
    if (!library) return;
    library->saveChanges();
    library->release();
}

}  // namespace varitap
