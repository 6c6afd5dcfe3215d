// Reads XML from a byte stream through libxml2's first-generation SAX
// interface and hands each start tag (with its attributes gathered in a
// PropertyDictionary) and end tag to virtual hooks. Parsing prints nothing,
// whatever the stream holds: errors and warnings go to handlers that
// discard them, and the first well-formedness error ends the callbacks.
#pragma once

#include "persistence/ByteStream.h"
#include "persistence/PropertyValue.h"
#include "persistence/RefObject.h"

namespace varitap {

class XmlReaderBase : public RefObject {
public:
    // Takes a reference on the stream and creates the parser context (which
    // can fail: parse then does nothing). The stream is read only by parse.
    explicit XmlReaderBase(ByteStream* stream);
    ~XmlReaderBase() override;

    // Hooks; the base does nothing. attributes is null for a tag without any.
    virtual void startElement(const char* name, PropertyDictionary* attributes);
    virtual void endElement(const char* name);

    // Parses the whole stream once; the outcome shows in what the hooks saw.
    void parse();

private:
    ByteStream* stream_;
    void* context_ = nullptr;  // xmlParserCtxtPtr, owned
};

}  // namespace varitap
