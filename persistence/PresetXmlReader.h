// Rebuilds the property model from a presets file. Inside the root element
// "Presets", <float|long|string name="KEY" value="VALUE"/> become values and
// <array name="KEY"> ... </array> a nested list; when the root's end tag is
// seen, result() holds the root list.
#pragma once

#include <cstdint>
#include <vector>

#include "persistence/PropertyValue.h"
#include "persistence/XmlReaderBase.h"

namespace varitap {

class PresetXmlReader : public XmlReaderBase {
public:
    explicit PresetXmlReader(ByteStream* stream);
    ~PresetXmlReader() override;

    void startElement(const char* name, PropertyDictionary* attributes) override;
    void endElement(const char* name) override;

    // The root list once its end tag was seen, else null. Owned by the
    // reader (retain it to keep it past the reader's life).
    PropertyList* result() const { return result_; }

    // Key of the temporary entry that carries an array's name while its
    // children are collected; it never reaches the tree.
    static constexpr const char* kTempKeyName = "__temp__key__name";

private:
    // What each open element did at its start, so that its end tag undoes
    // exactly that: an end tag never closes a list that its own start did
    // not open (a nested "Presets" end tag does not end the root either).
    // Inside the root, an element without attributes or an "array" without a
    // "name" is skipped together with everything inside it, so that its
    // children cannot land in (and rename, or add to) the enclosing list.
    enum class Opened : uint8_t { Nothing, Root, Array, Skipped };

    bool insideRoot_ = false;
    PropertyList stack_;              // open lists, outermost first; owns them
    PropertyList* current_ = nullptr; // innermost open list
    PropertyList* result_ = nullptr;
    std::vector<Opened> open_;        // one entry per open element
    uint32_t skipping_ = 0;           // open Skipped elements
};

}  // namespace varitap
