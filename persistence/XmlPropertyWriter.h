// Writes the property model as the presets file's XML text. The text is
// produced here, without an XML library, and is exactly:
//   <Presets version="1">LF
//   <TABs><float name="KEY" value="0.50000000000000" />LF   (and long, string)
//   <TABs><array name="KEY">LF ... <TABs></array>LF
//   </Presets>LF
// one TAB per open element, numbers in the C locale whatever the host's,
// and nothing escaped: keys and strings are written byte for byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "persistence/ByteStream.h"
#include "persistence/PropertyValue.h"
#include "persistence/RefObject.h"

namespace varitap {

class XmlPropertyWriter : public RefObject {
public:
    // Takes a reference on the stream for the writer's lifetime.
    explicit XmlPropertyWriter(ByteStream* stream);
    ~XmlPropertyWriter() override;

    // Each operation returns the result of its last write. At the first failed
    // write it stops and returns false, leaving depth as it was at that moment.

    // <name attr="..." ...> (or " />" when selfClosing) on one line; Array
    // attributes are skipped, a Long is written "%ld", a Float "%f".
    bool writeOpenTag(const char* name, const PropertyList* attributes, bool selfClosing);
    bool writeCloseTag(const char* name);
    // One value, and for an Array its children one level deeper.
    bool writeProperty(const PropertyValue* value);

    uint32_t depth() const { return depth_; }
    // Bytes handed to the stream so far (what a complete file will hold).
    uint64_t bytesRequested() const { return bytesRequested_; }

private:
    bool writeIndent();
    bool writeText(const std::string& text);

    ByteStream* stream_;
    uint32_t depth_ = 0;
    uint64_t bytesRequested_ = 0;
};

// Locale-independent number texts of the presets file.
// "%.14lf" of the single value widened to double.
std::string formatPresetFloat(double value);
// "%f" (six decimals).
std::string formatAttributeFloat(double value);
// "%ld".
std::string formatPresetLong(long value);

}  // namespace varitap
