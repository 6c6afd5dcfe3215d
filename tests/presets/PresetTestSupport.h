// Helpers for the preset tests, on top of the shared temporary folder and
// file helpers: the fixture files, and parsing a file into the property model.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "../base/TestSupport.h"
#include "persistence/ByteStream.h"
#include "persistence/PresetLibrary.h"
#include "persistence/PresetXmlReader.h"
#include "persistence/PropertyValue.h"

namespace varitap::test {

inline std::string dataPath(const std::string& name) {
    return std::string(VARITAP_TEST_DATA_DIR) + "/presets/" + name;
}

// Appends values to a preset, handing over their creation references.
inline void addValues(Preset* preset, std::initializer_list<PropertyValue*> values) {
    for (PropertyValue* v : values) {
        preset->addProperty(v);
        v->release();
    }
}

// Parses a file and keeps the root list (null when nothing was read).
inline RefPtr<PropertyList> parseFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY);
    if (descriptor < 0) return nullptr;
    auto stream = makeRef<FileStream>(descriptor);  // it leaves the descriptor open
    auto reader = makeRef<PresetXmlReader>(stream.get());
    reader->parse();
    RefPtr<PropertyList> result(reader->result());
    close(descriptor);
    return result;
}

}  // namespace varitap::test
