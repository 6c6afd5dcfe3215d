// The user's options, kept outside any preset in a per-user key file
// ($XDG_CONFIG_HOME/brelmo.varitap.conf, group [brelmo.varitap]). Every write
// re-reads the file, changes one key and replaces the file atomically, so
// instances in other processes lose nothing; every read sees the file as it
// is now.
#pragma once

#include <cstddef>
#include <string>

#include "persistence/RefObject.h"

namespace varitap {

inline constexpr const char* kPreferencesDomain = "brelmo.varitap";
inline constexpr const char* kOptionDelayTimeResample = "Delay Time Resample";
// Fades a tap from its old read position to the new one when its length
// changes (DelayTap::setSmoothDelayChanges); 0 or 1, off when absent.
inline constexpr const char* kOptionSmoothDelayTimeChanges = "Smooth Delay Time Changes";
inline constexpr const char* kOptionDelayTimeInSamples = "DelayTimeDisplayInSamples";
inline constexpr const char* kOptionSmoothFactor = "Automation Smooth Factor";
inline constexpr const char* kOptionBackgroundBitmap = "Background Bitmap";
// The editor's zoom chosen by the user, in percent (100, 125, 150, 175, 200);
// written only when the user picks one.
inline constexpr const char* kOptionEditorZoom = "Editor Zoom";

class Preferences : public SharedObject<Preferences> {
public:
    // construction thread.
    explicit Preferences(const char* identifier = kPreferencesDomain);
    ~Preferences() override;

    // any non-audio thread. A stored number is written to out and true is
    // returned; with no value (or one that is not a number) out = defaultValue
    // and false is returned.
    bool getNumber(const char* key, long* out, long defaultValue);
    void setNumber(const char* key, long number);
    // A given default is first copied into buffer (at most size bytes, no
    // terminator added if it does not fit); a stored value that fits in size
    // bytes with its terminator then replaces it and true is returned.
    bool getString(const char* key, char* buffer, size_t size, const char* defaultValue);
    void setString(const char* key, const char* value);

    // The key file's path.
    const std::string& path() const { return path_; }

private:
    std::string identifier_;
    std::string path_;
};

// The user's configuration folder: $XDG_CONFIG_HOME, else $HOME/.config.
std::string userConfigDirectory();

}  // namespace varitap
