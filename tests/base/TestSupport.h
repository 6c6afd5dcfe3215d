// Helpers shared by the base layer's tests: a temporary folder that cleans
// up after itself, small file helpers, and the German locale built for tests.
#pragma once

#include <ftw.h>
#include <stdlib.h>
#include <unistd.h>

#include <clocale>
#include <fstream>
#include <sstream>
#include <string>

namespace varitap::test {

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/varitap-base-XXXXXX";
        const char* made = mkdtemp(pattern);
        path_ = made ? made : "";
    }
    ~TempDir() {
        if (!path_.empty())
            nftw(path_.c_str(), [](const char* p, const struct stat*, int, FTW*) { return ::remove(p); }, 16,
                 FTW_DEPTH | FTW_PHYS);
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

inline bool fileExists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

// Switches the whole process to the German locale that the build generated
// (decimal comma). False when it is not available on this machine.
inline bool useGermanLocale() {
#ifdef VARITAP_TEST_LOCPATH
    ::setenv("LOCPATH", VARITAP_TEST_LOCPATH, 1);
#endif
    return std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
}

}  // namespace varitap::test
