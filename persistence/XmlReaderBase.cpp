#include "persistence/XmlReaderBase.h"

#include <libxml/parser.h>
#include <libxml/xmlerror.h>

#include <climits>
#include <cstring>
#include <mutex>

namespace varitap {

namespace {

// The library's global set-up, once per process. xmlCleanupParser is never
// called: the host (or another plug-in) may be using libxml2 too.
void initParserOnce() {
    static std::once_flag once;
    std::call_once(once, [] { xmlInitParser(); });
}

void discardMessage(void*, const char*, ...) {}
void discardError(void*, xmlErrorPtr) {}

// Some failures (a byte sequence that does not convert from the encoding
// libxml2 guessed, for one) are reported on libxml2's process-wide error
// channels instead of the parser's handler. Those channels are per thread:
// this silences them on the calling thread for the length of one of our own
// calls and then gives back whatever the host had set.
class QuietErrors {
public:
    QuietErrors()
        : generic_(xmlGenericError),
          genericContext_(xmlGenericErrorContext),
          structured_(xmlStructuredError),
          structuredContext_(xmlStructuredErrorContext) {
        xmlSetGenericErrorFunc(nullptr, discardMessage);
        xmlSetStructuredErrorFunc(nullptr, discardError);
    }
    ~QuietErrors() {
        xmlSetGenericErrorFunc(genericContext_, generic_);
        xmlSetStructuredErrorFunc(structuredContext_, structured_);
    }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;

private:
    xmlGenericErrorFunc generic_;
    void* genericContext_;
    xmlStructuredErrorFunc structured_;
    void* structuredContext_;
};

void onStartElement(void* user, const xmlChar* name, const xmlChar** attributes) {
    auto* reader = static_cast<XmlReaderBase*>(user);
    PropertyDictionary* dictionary = nullptr;
    if (attributes && attributes[0]) {
        dictionary = new PropertyDictionary;
        for (const xmlChar** pair = attributes; pair[0]; pair += 2) {
            const char* key = reinterpret_cast<const char*>(pair[0]);
            const char* text = pair[1] ? reinterpret_cast<const char*>(pair[1]) : "";
            PropertyValue* value = PropertyValue::makeString(key, text);
            dictionary->list.append(value);
            value->release();
        }
    }
    reader->startElement(reinterpret_cast<const char*>(name), dictionary);
    if (dictionary) dictionary->release();
}

void onEndElement(void* user, const xmlChar* name) {
    static_cast<XmlReaderBase*>(user)->endElement(reinterpret_cast<const char*>(name));
}

int onRead(void* context, char* buffer, int length) {
    if (length <= 0) return 0;
    size_t count = 0;
    if (!static_cast<ByteStream*>(context)->read(buffer, static_cast<size_t>(length), &count)) {
        return -1;
    }
    return count > static_cast<size_t>(INT_MAX) ? -1 : static_cast<int>(count);
}

// libxml2 may call this itself on its failure paths; the descriptor belongs
// to whoever opened it, who closes it exactly once after the reader is gone.
int onClose(void*) { return 0; }

// First-generation handler: initialized stays 0, so attributes arrive as
// name/value pairs. Only the two element callbacks and the three message
// callbacks are set; text, comments, processing instructions, CDATA and
// entity declarations are not handled and so ignored.
xmlSAXHandler makeHandler() {
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof handler);
    handler.startElement = onStartElement;
    handler.endElement = onEndElement;
    handler.warning = discardMessage;
    handler.error = discardMessage;
    handler.fatalError = discardMessage;
    return handler;
}

}  // namespace

XmlReaderBase::XmlReaderBase(ByteStream* stream) : stream_(stream) {
    initParserOnce();
    if (!stream_) return;
    stream_->retain();
    xmlSAXHandler handler = makeHandler();
    QuietErrors quiet;
    context_ = xmlCreateIOParserCtxt(&handler, this, onRead, onClose, stream_,
                                     XML_CHAR_ENCODING_UTF8);
}

XmlReaderBase::~XmlReaderBase() {
    if (auto* context = static_cast<xmlParserCtxtPtr>(context_)) {
        // In SAX mode libxml2 keeps entity declarations of an internal subset
        // in a document of its own that the context does not free.
        if (context->myDoc) {
            xmlFreeDoc(context->myDoc);
            context->myDoc = nullptr;
        }
        xmlFreeParserCtxt(context);
    }
    if (stream_) stream_->release();
}

void XmlReaderBase::startElement(const char*, PropertyDictionary*) {}

void XmlReaderBase::endElement(const char*) {}

void XmlReaderBase::parse() {
    if (!context_) return;
    QuietErrors quiet;
    xmlParseDocument(static_cast<xmlParserCtxtPtr>(context_));
}

}  // namespace varitap
