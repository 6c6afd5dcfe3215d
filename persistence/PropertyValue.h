// The typed, keyed value that everything persistent passes through: preset
// parameter values, preset and folder names, the whole presets file while it
// is read or written, and an XML element's attributes while it is parsed.
#pragma once

#include <cstdint>
#include <string>

#include "persistence/ObjectList.h"
#include "persistence/RefObject.h"

namespace varitap {

class PropertyList;

// The stored kind of a value. Tags outside 0..3 are never produced; code that
// switches on the tag treats them as having no payload.
enum class PropertyType : int16_t {
    Float = 0,
    Long = 1,
    String = 2,
    Array = 3,
};

// A value is created with one reference, held by its creator; the usual
// pattern is create, append to a list, release. Only a String's text can
// change after construction; numbers are replaced by new values.
// Not locked: owners guard shared trees.
class PropertyValue : public RefObject {
public:
    ~PropertyValue() override;

    // The number is rounded to single precision when stored.
    static PropertyValue* makeFloat(const char* key, double number);
    static PropertyValue* makeLong(const char* key, int32_t number);
    static PropertyValue* makeString(const char* key, const char* text);
    static PropertyValue* makeString(const char* key, const std::string& text);
    // A new list holding every element of source, in order; the elements are
    // shared (retained), not copied, and source stays the caller's.
    static PropertyValue* makeArray(const char* key, const PropertyList& source);

    const std::string& key() const { return key_; }
    PropertyType type() const { return type_; }

    // Float and Long share one 32-bit cell and are deliberately not
    // converted: getLong on a Float yields the float's bit pattern, getFloat
    // on a Long the integer's bits taken as a float. Other kinds give 0.
    double getFloat() const;
    int32_t getLong() const;
    // For a String its text; otherwise one process-wide empty string.
    const std::string& getString() const;
    // For an Array its list (no reference taken); otherwise null.
    PropertyList* getArray() const;
    // Replaces a String's text; does nothing for other kinds.
    void setString(const std::string& text);

private:
    PropertyValue(PropertyType type, const char* key);

    uint32_t cell_ = 0;                // Float and Long payload
    std::string text_;                 // String payload
    PropertyList* array_ = nullptr;    // Array payload, one reference held
    PropertyType type_;
    std::string key_;
};

// An ordered list of values with lookup by key: the dictionary of the model.
// Order is insertion order; keys need not be unique.
class PropertyList : public ObjectList {
public:
    // Only PropertyValues are stored in a PropertyList.
    PropertyValue* at(uint32_t index) const { return static_cast<PropertyValue*>(getAt(index)); }
    // The first element whose key equals key byte for byte, or null. Linear;
    // takes no reference.
    PropertyValue* findProperty(const char* key) const;
    PropertyValue* findProperty(const std::string& key) const;
};

// Carries one XML start tag's attributes to the reader.
class PropertyDictionary : public RefObject {
public:
    PropertyValue* findProperty(const char* key) const { return list.findProperty(key); }

    PropertyList list;
};

}  // namespace varitap
