#include "persistence/Preferences.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdio>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

#include "persistence/FolderLock.h"

namespace varitap {

namespace {

// Owns a GKeyFile for one access.
struct KeyFile {
    KeyFile() : file(g_key_file_new()) {}
    ~KeyFile() { g_key_file_free(file); }
    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;
    GKeyFile* file;
};

// GKeyFile refuses (with a warning on stderr) key names it could not read
// back: empty ones, ones with '=', '[', ']' or a line break, and ones with
// leading or trailing blanks. Such a key "cannot be made" and the access fails
// quietly instead.
bool isUsableKey(const char* key) {
    if (!key || !*key) return false;
    const size_t length = std::strlen(key);
    if (key[0] == ' ' || key[0] == '\t' || key[length - 1] == ' ' || key[length - 1] == '\t') return false;
    if (std::strpbrk(key, "=[]\n\r")) return false;
    return g_utf8_validate(key, static_cast<gssize>(length), nullptr);
}

enum class LoadResult { kLoaded, kMissing, kUnreadable };

LoadResult load(GKeyFile* file, const std::string& path) {
    GError* error = nullptr;
    if (g_key_file_load_from_file(file, path.c_str(), G_KEY_FILE_KEEP_COMMENTS, &error)) return LoadResult::kLoaded;
    const bool missing = error && error->domain == G_FILE_ERROR && error->code == G_FILE_ERROR_NOENT;
    g_clear_error(&error);
    return missing ? LoadResult::kMissing : LoadResult::kUnreadable;
}

// The stored text of key, or null; the caller frees it.
char* readValue(const std::string& path, const std::string& group, const char* key) {
    KeyFile keys;
    if (load(keys.file, path) != LoadResult::kLoaded) return nullptr;
    return g_key_file_get_string(keys.file, group.c_str(), key, nullptr);
}

// Re-reads the file, lets change() alter the one key and replaces the file
// atomically (GLib writes a temporary file in the same folder and renames it).
// A file that exists but cannot be parsed is first kept as "<file>.bak"; if
// even that fails nothing is written, so the user's file is never lost.
template <class Change>
void writeThrough(const std::string& path, Change change) {
    const std::string folder = path.substr(0, path.rfind('/'));
    if (folder.empty()) return;
    g_mkdir_with_parents(folder.c_str(), 0700);
    // One writer at a time, here and in other processes: two instances
    // writing different keys at once both keep their change.
    FolderLock lock(folder);

    KeyFile keys;
    if (load(keys.file, path) == LoadResult::kUnreadable) {
        const std::string backup = path + ".bak";
        if (std::rename(path.c_str(), backup.c_str()) != 0) return;
        g_key_file_free(keys.file);
        keys.file = g_key_file_new();
    }
    change(keys.file);
    g_key_file_save_to_file(keys.file, path.c_str(), nullptr);
}

}  // namespace

std::string userConfigDirectory() {
    // The XDG rule: a relative $XDG_CONFIG_HOME is invalid and ignored.
    const char* config = std::getenv("XDG_CONFIG_HOME");
    if (config && config[0] == '/') return config;
    const char* home = std::getenv("HOME");
    if (home && *home) return std::string(home) + "/.config";
    // No $HOME (a stripped-down host environment): the password database.
    char scratch[4096];
    passwd entry;
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, scratch, sizeof(scratch), &found) == 0 && found && found->pw_dir)
        return std::string(found->pw_dir) + "/.config";
    return std::string();
}

Preferences::Preferences(const char* identifier)
    : identifier_(identifier && *identifier ? identifier : kPreferencesDomain) {
    const std::string folder = userConfigDirectory();
    if (!folder.empty()) path_ = folder + "/" + identifier_ + ".conf";
}

// Every write already reached the disk: nothing is left to synchronise.
Preferences::~Preferences() = default;

bool Preferences::getNumber(const char* key, long* out, long defaultValue) {
    if (!out || !isUsableKey(key) || path_.empty()) return false;
    char* text = readValue(path_, identifier_, key);
    if (!text) {
        *out = defaultValue;
        return false;
    }
    // Only a whole decimal integer in range is a number; anything else (a
    // word, a fraction, an overflow) reads as if the key were absent, so the
    // caller carries on with its default.
    const char* begin = text;
    const char* end = text + std::strlen(text);
    while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
    while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
    if (begin < end && *begin == '+') ++begin;
    long value = 0;
    const auto result = std::from_chars(begin, end, value);
    const bool ok = begin < end && result.ec == std::errc() && result.ptr == end;
    g_free(text);
    *out = ok ? value : defaultValue;
    return ok;
}

void Preferences::setNumber(const char* key, long number) {
    if (!isUsableKey(key) || path_.empty()) return;
    char digits[32];
    const auto result = std::to_chars(digits, digits + sizeof(digits) - 1, number);
    *result.ptr = '\0';
    writeThrough(path_, [&](GKeyFile* file) { g_key_file_set_value(file, identifier_.c_str(), key, digits); });
}

bool Preferences::getString(const char* key, char* buffer, size_t size, const char* defaultValue) {
    if (!buffer || size == 0) return false;
    if (defaultValue) {
        // At most size bytes; the terminator only when it fits.
        const size_t length = std::strlen(defaultValue) + 1;
        std::memcpy(buffer, defaultValue, length < size ? length : size);
    }
    if (!isUsableKey(key) || path_.empty()) return false;
    char* text = readValue(path_, identifier_, key);
    if (!text) return false;
    // The stored value replaces the default only when it fits with its
    // terminator; otherwise the conversion fails and the default stays.
    const size_t length = std::strlen(text) + 1;
    const bool fits = length <= size;
    if (fits) std::memcpy(buffer, text, length);
    g_free(text);
    return fits;
}

void Preferences::setString(const char* key, const char* value) {
    if (!isUsableKey(key) || !value || path_.empty()) return;
    if (!g_utf8_validate(value, -1, nullptr)) return;
    writeThrough(path_, [&](GKeyFile* file) { g_key_file_set_string(file, identifier_.c_str(), key, value); });
}

}  // namespace varitap
