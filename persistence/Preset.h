// The preset library's tree: presets in folders, folders in the one
// process-wide library. Factory folders (and the presets in them) carry
// kFactory and are never written to the user's file.
#pragma once

#include <cstdint>
#include <string>

#include "persistence/ObjectList.h"
#include "persistence/PropertyValue.h"
#include "persistence/RefObject.h"

namespace varitap {

inline constexpr uint32_t kFactory = 2;

// A named list of property values: the plug-in's parameter state as the
// plug-in core captured it. The library never looks inside. ui thread.
class Preset : public RefObject {
public:
    // name: the preset's name; empty when null.
    explicit Preset(const char* name = nullptr);
    ~Preset() override;

    // Appends the name value, then every property (shared, not copied).
    bool writeProperties(PropertyList& list) override;
    // "name" sets the name (a non-string name becomes empty); every other
    // entry is appended to the properties as it is.
    bool readProperties(PropertyList& list) override;

    virtual const std::string& getName() const;
    virtual void setName(const char* name);
    // Appends, taking a reference.
    virtual void addProperty(PropertyValue* value);
    virtual PropertyValue* findProperty(const std::string& key) const;
    virtual PropertyList& properties();

    uint32_t flags() const { return flags_; }
    void setFlags(uint32_t flags) { flags_ = flags; }
    bool isFactory() const { return (flags_ & kFactory) != 0; }

private:
    PropertyList properties_;
    PropertyValue* nameValue_;  // String "name", owned
    uint32_t flags_ = 0;
};

class PresetFolder : public RefObject {
public:
    explicit PresetFolder(const char* name = nullptr, uint32_t flags = 0);

    // String "name", then one Array "preset" per preset.
    bool writeProperties(PropertyList& list) override;
    bool readProperties(PropertyList& list) override;

    virtual const std::string& getName() const { return name_; }
    virtual void setName(const char* name) { name_ = name ? name : ""; }

    // Appends; a factory folder marks the preset kFactory.
    void addPreset(Preset* preset);
    // Removes the first entry that is this very preset; always true.
    bool removePreset(Preset* preset);

    const ObjectList& presets() const { return presets_; }
    uint32_t presetCount() const { return presets_.count(); }
    Preset* presetAt(uint32_t index) const { return static_cast<Preset*>(presets_.getAt(index)); }

    uint32_t flags() const { return flags_; }
    bool isFactory() const { return (flags_ & kFactory) != 0; }

private:
    std::string name_;
    ObjectList presets_;
    uint32_t flags_;
};

}  // namespace varitap
