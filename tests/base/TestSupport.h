// Helpers shared by the base and preset tests: a temporary folder that
// cleans up after itself, whole-file helpers, and the German locale built
// for tests.
#pragma once

#include <stdlib.h>

#include <clocale>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "persistence/RefObject.h"

namespace varitap::test {

// Counts destructions so that tests can see exactly when an object (or a
// list, with Base = ObjectList) dies.
template <class Base = RefObject>
class Tracked : public Base {
public:
    explicit Tracked(int* destroyed) : destroyed_(destroyed) {}
    ~Tracked() override { ++*destroyed_; }

private:
    int* destroyed_;
};

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/varitap-test-XXXXXX";
        path_ = mkdtemp(pattern) ? pattern : "";
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline bool writeFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

inline bool fileExists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

// Switches the whole process to the German locale that the build generated
// (decimal comma). False when it is not available on this machine.
inline bool useGermanLocale() {
#ifdef VARITAP_TEST_LOCPATH
    ::setenv("LOCPATH", VARITAP_TEST_LOCPATH, 1);
#endif
    return std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
}

}  // namespace varitap::test
