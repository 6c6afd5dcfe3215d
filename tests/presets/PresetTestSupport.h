// Helpers shared by the preset tests: temporary folders, whole-file reads,
// parsing a file into the property model, and capturing stderr.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "persistence/ByteStream.h"
#include "persistence/PresetXmlReader.h"
#include "persistence/PropertyValue.h"

namespace varitap::testing {

inline std::string dataPath(const std::string& name) {
    return std::string(VARITAP_TEST_DATA_DIR) + "/presets/" + name;
}

inline std::string readWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void writeWholeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// A fresh folder under /tmp, removed with everything in it.
class TempFolder {
public:
    TempFolder() {
        char name[] = "/tmp/varitap-presets-XXXXXX";
        path_ = mkdtemp(name) ? name : "";
    }
    ~TempFolder() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

// Parses a file and keeps the root list (null when nothing was read).
inline RefPtr<PropertyList> parseFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY);
    if (descriptor < 0) return nullptr;
    RefPtr<PropertyList> result;
    {
        auto stream = makeRef<FileStream>(descriptor);
        auto reader = makeRef<PresetXmlReader>(stream.get());
        reader->parse();
        result = RefPtr<PropertyList>(reader->result());
    }
    close(descriptor);
    return result;
}

// Everything written to file descriptor 2 while it lives.
class StderrCapture {
public:
    StderrCapture() {
        std::fflush(stderr);
        char name[] = "/tmp/varitap-stderr-XXXXXX";
        file_ = mkstemp(name);
        path_ = name;
        saved_ = dup(2);
        dup2(file_, 2);
    }
    ~StderrCapture() {
        restore();
        unlink(path_.c_str());
    }
    StderrCapture(const StderrCapture&) = delete;
    StderrCapture& operator=(const StderrCapture&) = delete;

    // Stops capturing and returns what was written.
    std::string text() {
        restore();
        return readWholeFile(path_);
    }

private:
    void restore() {
        if (saved_ < 0) return;
        std::fflush(stderr);
        dup2(saved_, 2);
        close(saved_);
        close(file_);
        saved_ = -1;
    }
    int file_ = -1;
    int saved_ = -1;
    std::string path_;
};

}  // namespace varitap::testing
