// The background pictures a user can choose for the editor: PNG files in the
// "Backgrounds" folder of the bundle's resources, remembered by file name in
// the "Background Bitmap" option.
#pragma once

#include <cstddef>
#include <string>

#include "persistence/ObjectList.h"
#include "persistence/RefObject.h"

namespace varitap {

class Preferences;

// The file name chosen when the option holds none.
inline constexpr const char* kDefaultBackgroundName = "default.png";

// One available background: the full path of its PNG file.
class BackgroundEntry : public RefObject {
public:
    // Longest path kept, in bytes, not counting the terminator.
    static constexpr size_t kMaxPathBytes = 1023;

    // any thread. A path longer than kMaxPathBytes is not cut (a cut path
    // would name another file): the entry then holds an empty path.
    explicit BackgroundEntry(const char* path);

    const char* path() const { return path_; }
    // The part after the last "/", or the whole path when it has none.
    const char* fileName() const;
    // The file name up to, not including, its last "."; the whole file name
    // when it has no ".".
    std::string displayName() const;
    // Appends "/" and name. False, and the path unchanged, when the result
    // would not fit in kMaxPathBytes.
    bool appendPathComponent(const char* name);

private:
    char path_[kMaxPathBytes + 1];
};

// ui thread. The file name the user chose last: the "Background Bitmap"
// option when it is stored, else "default.png".
std::string wantedBackgroundName(Preferences& preferences);

// ui thread. Empties list, then appends one entry per PNG file of
// <bundle>/Contents/Resources/Backgrounds in the bundle's order. Returns the
// entry whose file name equals wantedName exactly (case-sensitive), else the
// first entry, else null when the folder holds no PNG file (the editor then
// runs without a background and with an empty Background menu).
RefPtr<BackgroundEntry> gatherBackgrounds(const std::string& bundle, const char* wantedName,
                                          ObjectList& list);

}  // namespace varitap
