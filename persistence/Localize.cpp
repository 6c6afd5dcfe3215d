#include "persistence/Localize.h"

#include <libintl.h>

#include <cstring>
#include <string>

#include "persistence/PluginBundle.h"

namespace varitap {

namespace {

constexpr const char* kTextDomain = "varitap";
constexpr size_t kBufferSize = 1024;

// The one result buffer every caller shares; the next call overwrites it.
char gLocalized[kBufferSize];

// Binds our text domain to the bundle's own catalogues, once per process.
// Only the domain is bound: textdomain() and setlocale() belong to the host.
// Outside a bundle (a program linking the code directly) the domain stays
// unbound and, with no catalogue found, every word comes back unchanged.
void bindOnce() {
    static const bool bound = [] {
        const std::string bundle = copyPluginBundle();
        if (!bundle.empty()) {
            const std::string folder = bundle + "/Contents/Resources/locale";
            bindtextdomain(kTextDomain, folder.c_str());
        }
        bind_textdomain_codeset(kTextDomain, "UTF-8");
        return true;
    }();
    (void)bound;
}

// Copies text into the shared buffer, cutting an over-long text at a UTF-8
// character boundary so the result stays valid.
void copyToBuffer(const char* text) {
    size_t length = std::strlen(text);
    if (length >= kBufferSize) {
        length = kBufferSize - 1;
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
    }
    std::memcpy(gLocalized, text, length);
    gLocalized[length] = '\0';
}

}  // namespace

const char* localize(const char* text) {
    if (!text) {
        gLocalized[0] = '\0';
        return gLocalized;
    }
    bindOnce();
    // dgettext hands back the key itself when there is no translation (or
    // when the host runs in the "C" locale); the empty key would return the
    // catalogue's header, so it is never looked up.
    const char* translated = *text ? dgettext(kTextDomain, text) : text;
    copyToBuffer(translated ? translated : text);
    return gLocalized;
}

}  // namespace varitap
