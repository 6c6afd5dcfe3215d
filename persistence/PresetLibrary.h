// The process-wide library of preset folders behind the editor's "Presets"
// menu: the factory folders from the bundle's varitap.factory.presets.xml
// (read-only, kFactory), then the user's folders from
// $XDG_CONFIG_HOME/brelmo.varitap.presets.xml. The first plug-in instance
// creates and loads it, later instances share it, and every instance's
// destruction rewrites the user file from memory.
//
// Threads: construction and destruction of plug-in instances and the
// editor's menu commands, all on the host's user-interface thread. No lock.
#pragma once

#include <cstdint>
#include <string>

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
    // save leaves the old file whole. A user file that was found unreadable
    // when this library loaded it is first kept as <path>.bak. True on success.
    bool saveFile(const std::string& path);

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
    // construction thread. If the library exists: saves the user file and
    // releases one reference (the last one destroys the library).
    static void saveAndRelease();

    // Where the files are: $XDG_CONFIG_HOME (else $HOME/.config) with the
    // user file's name, and the factory resource in this plug-in's bundle
    // (empty when not found).
    static std::string userPresetsPath();
    static std::string factoryPresetsPath();

private:
    ObjectList folders_;
    bool loadingFactory_ = false;
    // Set when the user file is there but loaded nothing (not well-formed,
    // cut, or not openable): the first save keeps it as .bak before replacing
    // it, so a bad file never costs the user their presets. An empty file
    // holds nothing to keep and does not replace an older .bak.
    std::string unreadableUserFile_;
    // The user file this library was loaded from and saves to.
    std::string userPath_;
};

}  // namespace varitap
