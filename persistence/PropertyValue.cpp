#include "persistence/PropertyValue.h"

#include <cstring>

namespace varitap {

PropertyValue::PropertyValue(PropertyType type, const char* key)
    : type_(type), key_(key ? key : "") {}

PropertyValue::~PropertyValue() {
    if (array_) array_->release();
}

PropertyValue* PropertyValue::makeFloat(const char* key, double number) {
    auto* value = new PropertyValue(PropertyType::Float, key);
    const float single = static_cast<float>(number);
    std::memcpy(&value->cell_, &single, sizeof single);
    return value;
}

PropertyValue* PropertyValue::makeLong(const char* key, int32_t number) {
    auto* value = new PropertyValue(PropertyType::Long, key);
    std::memcpy(&value->cell_, &number, sizeof number);
    return value;
}

PropertyValue* PropertyValue::makeString(const char* key, const char* text) {
    auto* value = new PropertyValue(PropertyType::String, key);
    value->text_ = text ? text : "";
    return value;
}

PropertyValue* PropertyValue::makeString(const char* key, const std::string& text) {
    auto* value = new PropertyValue(PropertyType::String, key);
    value->text_ = text;
    return value;
}

PropertyValue* PropertyValue::makeArray(const char* key, const PropertyList& source) {
    auto* value = new PropertyValue(PropertyType::Array, key);
    value->array_ = new PropertyList;
    value->array_->appendAll(source);
    return value;
}

double PropertyValue::getFloat() const {
    if (type_ != PropertyType::Float && type_ != PropertyType::Long) return 0.0;
    float single;
    std::memcpy(&single, &cell_, sizeof single);
    return single;
}

int32_t PropertyValue::getLong() const {
    if (type_ != PropertyType::Float && type_ != PropertyType::Long) return 0;
    int32_t number;
    std::memcpy(&number, &cell_, sizeof number);
    return number;
}

const std::string& PropertyValue::getString() const {
    // Destroyed when the plug-in is unloaded (dlclose), when no code of it
    // can hold the reference any more; a heap copy would leak once per load.
    static const std::string empty;
    return type_ == PropertyType::String ? text_ : empty;
}

PropertyList* PropertyValue::getArray() const {
    return type_ == PropertyType::Array ? array_ : nullptr;
}

void PropertyValue::setString(const std::string& text) {
    if (type_ == PropertyType::String) text_ = text;
}

PropertyValue* PropertyList::findProperty(const char* key) const {
    if (!key) return nullptr;
    const size_t length = std::strlen(key);
    for (uint32_t i = 0, n = count(); i < n; ++i) {
        PropertyValue* value = at(i);
        const std::string& k = value->key();
        if (k.size() == length && std::memcmp(k.data(), key, length) == 0) return value;
    }
    return nullptr;
}

PropertyValue* PropertyList::findProperty(const std::string& key) const {
    for (uint32_t i = 0, n = count(); i < n; ++i) {
        PropertyValue* value = at(i);
        if (value->key() == key) return value;
    }
    return nullptr;
}

}  // namespace varitap
