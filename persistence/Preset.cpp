#include "persistence/Preset.h"

namespace varitap {

Preset::Preset(const char* name) : nameValue_(PropertyValue::makeString("name", name ? name : "")) {}

Preset::~Preset() { nameValue_->release(); }

bool Preset::writeProperties(PropertyList& list) {
    list.append(nameValue_);
    for (uint32_t i = 0, n = properties_.count(); i < n; ++i) list.append(properties_.getAt(i));
    return true;
}

bool Preset::readProperties(PropertyList& list) {
    for (uint32_t i = 0, n = list.count(); i < n; ++i) {
        PropertyValue* value = list.at(i);
        if (value->key() == "name") {
            setName(value->getString().c_str());
        } else {
            properties_.append(value);
        }
    }
    return true;
}

const std::string& Preset::getName() const { return nameValue_->getString(); }

void Preset::setName(const char* name) { nameValue_->setString(name ? name : ""); }

void Preset::addProperty(PropertyValue* value) { properties_.append(value); }

PropertyValue* Preset::findProperty(const std::string& key) const {
    return properties_.findProperty(key);
}

PropertyList& Preset::properties() { return properties_; }

PresetFolder::PresetFolder(const char* name, uint32_t flags)
    : name_(name ? name : ""), flags_(flags) {}

bool PresetFolder::writeProperties(PropertyList& list) {
    PropertyValue* name = PropertyValue::makeString("name", name_);
    list.append(name);
    name->release();
    for (uint32_t i = 0, n = presets_.count(); i < n; ++i) {
        PropertyList temporary;
        presetAt(i)->writeProperties(temporary);
        PropertyValue* array = PropertyValue::makeArray("preset", temporary);
        list.append(array);
        array->release();
    }
    return true;
}

bool PresetFolder::readProperties(PropertyList& list) {
    for (uint32_t i = 0, n = list.count(); i < n; ++i) {
        PropertyValue* value = list.at(i);
        if (value->key() == "name") {
            setName(value->getString().c_str());
        } else if (value->key() == "preset") {
            auto* preset = new Preset;
            PropertyList* entries = value->getArray();
            // A "preset" that is not an array reads as an empty preset.
            PropertyList empty;
            if (!preset->readProperties(entries ? *entries : empty)) {
                preset->release();
                return false;
            }
            presets_.append(preset);
            if (isFactory()) preset->setFlags(preset->flags() | kFactory);
            preset->release();
        }
    }
    return true;
}

void PresetFolder::addPreset(Preset* preset) {
    if (!preset) return;
    presets_.append(preset);
    if (isFactory()) preset->setFlags(preset->flags() | kFactory);
}

bool PresetFolder::removePreset(Preset* preset) {
    presets_.remove(preset);
    return true;
}

}  // namespace varitap
