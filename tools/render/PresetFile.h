// Varitap's preset library as the command-line host reads it. Varitap has no
// host opcode for its presets: they live in two XML files (the factory file
// in the bundle's resources and the user's file in the configuration folder),
// so the host reads both with Varitap's own preset library and applies a
// preset through setParameter, the way Varitap applies one to its own
// parameters. The library is a private one made by the tool, never the
// process-wide one, and is never saved: the tool does not write presets.
#pragma once

#include <string>
#include <vector>

#include "persistence/PresetLibrary.h"

namespace render {

class HostedPlugin;

// <bundle>/Contents/Resources/varitap.factory.presets.xml, whether or not the
// file is there (messages name it); empty without a bundle.
std::string factoryPresetsPath(const std::string& bundle);
// The user's presets file, where Varitap itself reads and saves it.
std::string userPresetsPath();

// Adds the bundle's factory presets, then the user's, as Varitap's menu
// lists them. Missing or unreadable files add nothing.
void loadPresetLibrary(varitap::PresetLibrary& library, const std::string& bundle);

// One preset of a library with the name the command line uses for it.
struct PresetEntry {
    std::string fullName;  // "Folder/Name"
    varitap::Preset* preset = nullptr;  // owned by the library
};

// Every preset, folder by folder, in library order.
std::vector<PresetEntry> listPresets(const varitap::PresetLibrary& library);
// "Folder/Name": the first match in library order, or null. A folder name may
// itself hold a slash, so the whole name is compared, never split.
varitap::Preset* findPreset(const varitap::PresetLibrary& library, const std::string& fullName);

// Sets the values Varitap itself sets for the preset (varitap::
// presetParameterValues, limited to the plug-in's parameters) through the
// plug-in's setParameter. For Varitap the routing clamp it runs after
// applying a preset follows, so that a preset routed to pins the plug-in does
// not have ends up where Varitap puts it.
void applyPreset(HostedPlugin& plugin, varitap::Preset& preset);

}  // namespace render
