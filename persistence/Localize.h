#pragma once

namespace varitap {

// ui thread. The word's translation from the bundle's catalogue
// (Contents/Resources/locale/<lang>/LC_MESSAGES/varitap.mo), or the word
// itself. The result lives in one shared 1024-byte buffer that the next call
// overwrites: copy it at once.
const char* localize(const char* text);

}  // namespace varitap
