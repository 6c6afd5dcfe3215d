#include "persistence/PresetLibrary.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "persistence/ByteStream.h"
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
    if (path.empty()) return false;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        // A user file that is there but cannot be opened (permissions, an
        // I/O error) loads nothing, yet may hold the user's presets: keep it
        // before the first save replaces it. A missing file is simply new.
        if (!factory && errno != ENOENT && errno != ENOTDIR) unreadableUserFile_ = path;
        return false;
    }

    bool loaded = false;
    {
        RefPtr<FileStream> stream = makeRef<FileStream>(descriptor);
        RefPtr<PresetXmlReader> reader = makeRef<PresetXmlReader>(stream.get());
        reader->parse();
        if (PropertyList* result = reader->result()) {
            loadingFactory_ = factory;
            readProperties(*result);
            loadingFactory_ = false;
            loaded = true;
        }
    }

    struct stat info;
    if (!factory && !loaded && fstat(descriptor, &info) == 0 && info.st_size > 0) {
        unreadableUserFile_ = path;
    }
    close(descriptor);
    return true;
}

bool PresetLibrary::saveFile(const std::string& path) {
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

    if (!unreadableUserFile_.empty() && unreadableUserFile_ == path) {
        keepAsBackup(target);
        unreadableUserFile_.clear();
    }
    if (rename(temporary.c_str(), target.c_str()) != 0) {
        unlink(temporary.c_str());
        return false;
    }
    syncFolder(folder);
    return true;
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
    sharedLibrary = library;
    return library;
}

void PresetLibrary::saveAndRelease() {
    PresetLibrary* library = sharedLibrary;
    if (!library) return;
    library->saveFile(library->userPath_);
    library->release();
}

}  // namespace varitap
