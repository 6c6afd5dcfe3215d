// Varitap's preset library as the command-line host reads it. Varitap has no
// host opcode for its presets: they live in two XML files (the factory file
// in the bundle's resources and the user's file in the configuration folder),
// so the host reads both itself and applies a preset through setParameter,
// the way Varitap applies one to its own parameters.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace render {

class PluginInstance;

// One typed value of a preset. Numbers keep the 32-bit cell the preset format
// stores, so that a Long read as a float (and the reverse) gives the bits
// Varitap's own property model would give.
struct PresetValue {
    enum Type { kFloat, kLong, kString, kArray };
    std::string key;
    Type type = kFloat;
    uint32_t cell = 0;  // the float's or the long's 32 bits
    std::string text;   // a string's text

    float asFloat() const;    // the cell as a float; 0 for strings and arrays
    int32_t asLong() const;   // the cell as an integer; 0 for strings and arrays
};

struct Preset {
    std::string folder;
    std::string name;
    bool factory = false;
    std::vector<PresetValue> values;  // in file order, the name excluded

    std::string fullName() const { return folder + "/" + name; }
};

// $XDG_CONFIG_HOME/brelmo.varitap.presets.xml, with $HOME/.config when
// XDG_CONFIG_HOME is unset or empty.
std::string userPresetsPath();
// <bundle>/Contents/Resources/varitap.factory.presets.xml; empty without a bundle.
std::string factoryPresetsPath(const std::string& bundle);

class PresetCollection {
public:
    // Adds the folders of one presets file, in file order. A missing file
    // adds nothing and returns false; so does a file that is not well formed
    // (Varitap loads nothing from such a file either).
    bool loadFile(const std::string& path, bool factory);
    // Factory presets first, then the user's, as Varitap's menu lists them.
    void loadLibrary(const std::string& bundle);

    const std::vector<Preset>& presets() const { return presets_; }
    // "Folder/Name"; the first match in library order, or null.
    const Preset* find(const std::string& fullName) const;

private:
    std::vector<Preset> presets_;
};

// The (index, value) pairs Varitap sets when it applies this preset: every
// value whose key reads as a decimal index below parameterCount, converted
// from the first preset layout when the preset has no "Version" or version 0.
std::vector<std::pair<int, float>> presetParameterValues(const Preset& preset, int parameterCount);

// Sets the preset's values through the plug-in's setParameter. For Varitap
// the routing clamp it runs after applying a preset follows, so that a preset
// routed to pins the plug-in does not have ends up where Varitap puts it.
void applyPreset(PluginInstance& plugin, const Preset& preset);

}  // namespace render
