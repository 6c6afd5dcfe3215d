// The process-wide library of preset folders behind the editor's "Presets"
// menu: the factory folders from the bundle's varitap.factory.presets.xml
// (read-only, kFactory), then the user's folders from
// $XDG_CONFIG_HOME/brelmo.varitap.presets.xml. The first plug-in instance
// creates and loads it, later instances share it, and every instance's
// destruction saves what this process changed since it last read or wrote
// the user file, merged with what other processes saved there meanwhile.
//
// Threads: construction and destruction of plug-in instances and the
// editor's menu commands, all on the host's user-interface thread. No lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "persistence/ObjectList.h"
#include "persistence/Preset.h"
#include "persistence/PropertyValue.h"
#include "persistence/RefObject.h"

namespace varitap {

inline constexpr const char* kUserPresetsFileName = "brelmo.varitap.presets.xml";
inline constexpr const char* kFactoryPresetsResource = "varitap.factory.presets";
inline constexpr const char* kFactoryPresetsType = "xml";

class PresetLibrary : public RefObject {
public:
    PresetLibrary();
    ~PresetLibrary() override;

    // One Array "folder" per folder without kFactory, in library order.
    bool writeProperties(PropertyList& list) override;
    // Every "folder" entry becomes a folder (kFactory while loadingFactory);
    // other keys are ignored. A folder that fails to read stops the reading,
    // keeping the folders already added.
    bool readProperties(PropertyList& list) override;

    // A new folder (empty name for null) at the end, owned by the library.
    PresetFolder* addFolder(const char* name);
    // Removes the first entry that is this very folder; true if found.
    bool removeFolder(PresetFolder* folder);

    // Reads a presets file and adds what it holds (nothing at all when the
    // file does not open or is not well-formed). True when the file opened.
    bool loadFile(const std::string& path, bool factory);
    // Replaces the file at path with the user folders, atomically: the text
    // goes to a temporary file in the same folder, which is renamed over the
    // old one only when every byte was written, so an interrupted or failed
    // save leaves the old file whole. True on success.
    bool saveFile(const std::string& path);

    // The shared library's user file (see acquireForInstance). Whether the
    // user folders differ from the file as this library last read or wrote
    // it: a folder or preset added or removed, a name or a preset changed.
    bool hasChanges() const;
    // construction thread. Saves this library's changes into its user file
    // without losing what other processes saved there since this library last
    // read or wrote it. Under the configuration folder's lock the file is read
    // again, the other processes' changes are taken into this library (their
    // new folders and presets added at the end, their removals applied; a
    // folder one side removed while the other added to it keeps the added
    // presets), and the result replaces the file. A file that is there but
    // does not read as a presets file is first kept as <path>.bak, and this
    // library's folders replace it. Without a change nothing is read or
    // written. True when the file holds this library's user folders.
    bool saveChanges();

    uint32_t folderCount() const { return folders_.count(); }
    PresetFolder* folderAt(uint32_t index) const {
        return static_cast<PresetFolder*>(folders_.getAt(index));
    }
    const ObjectList& folders() const { return folders_; }
    bool loadingFactory() const { return loadingFactory_; }

    // The process-wide library, or null; takes no reference. Only the
    // library made by acquireForInstance is the shared one: libraries made
    // directly (tools, tests) are private to their maker.
    static PresetLibrary* current();

    // construction thread. The plug-in instance's share of the library: the
    // first call of the process creates it and loads the factory file from
    // the bundle and then the user file; later calls retain it. Returns the
    // library, with a reference owned by the instance.
    static PresetLibrary* acquireForInstance();
    // The same with explicit files, for tools and tests.
    static PresetLibrary* acquireForInstance(const std::string& factoryPath,
                                             const std::string& userPath);
    // construction thread. If the library exists: saves its changes
    // (saveChanges) and releases one reference (the last one destroys the
    // library).
    static void saveAndRelease();

    // Where the files are: $XDG_CONFIG_HOME (else $HOME/.config) with the
    // user file's name, and the factory resource in this plug-in's bundle
    // (empty when not found).
    static std::string userPresetsPath();
    static std::string factoryPresetsPath();

private:
    // What reading a presets file found.
    enum class FileState {
        kMissing,     // no such file
        kUnopenable,  // there, but it cannot be opened
        kEmpty,       // opened, no bytes
        kNotPresets,  // opened, but not a well-formed presets file
        kLoaded,      // read
    };

    // One preset and one user folder as the user file held them: the objects
    // (kept alive, so that identity is never mistaken) and their texts then.
    struct PresetRecord {
        RefPtr<Preset> preset;
        std::string text;  // the preset as the file writes it
    };
    struct FolderRecord {
        RefPtr<PresetFolder> folder;
        std::string name;
        std::vector<PresetRecord> presets;
    };
    using Records = std::vector<FolderRecord>;

    FileState readFile(const std::string& path, bool factory);
    // keepOldAsBackup: the file at path is first kept as <path>.bak.
    bool writeFile(const std::string& path, bool keepOldAsBackup);
    // The user folders as they are now.
    Records snapshot() const;
    // Applies to this library what changed between synced_ and theirs (the
    // file as it is now); returns theirs in this library's objects.
    Records takeInChanges(const Records& theirs);

    ObjectList folders_;
    bool loadingFactory_ = false;
    // The user file this library was loaded from and saves to.
    std::string userPath_;
    // The user folders as the user file held them when this library last read
    // or wrote it: what its changes are measured against.
    Records synced_;
};

}  // namespace varitap
