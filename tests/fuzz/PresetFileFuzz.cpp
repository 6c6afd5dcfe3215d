// libFuzzer target: arbitrary bytes as a presets file. The reader parses them
// through libxml2; whatever tree comes out goes through the library's
// readProperties (as a user file and as a factory file), is written back with
// the presets writer and read once more. Nothing may crash, leak, hang or
// print. Built and run by scripts/fuzz.sh, not by the normal build.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "../presets/PresetTestSupport.h"
#include "persistence/ByteStream.h"
#include "persistence/PresetLibrary.h"
#include "persistence/PresetXmlReader.h"
#include "persistence/XmlPropertyWriter.h"

namespace {

using namespace varitap;

// The root list of a parse, null if none: the bytes in an anonymous file in
// memory, parsed as the preset tests parse a file (through the stream the
// plug-in reads its presets file with, in pieces of the size libxml2 asks for).
RefPtr<PropertyList> parse(const uint8_t* data, size_t size) {
    const int file = memfd_create("presets", 0);
    const bool written = file >= 0 && write(file, data, size) == static_cast<ssize_t>(size);
    RefPtr<PropertyList> root = written ? test::parseFile("/proc/self/fd/" + std::to_string(file)) : nullptr;
    if (file >= 0) close(file);
    return root;
}

std::string write(PresetLibrary& library) {
    PropertyList list;
    library.writeProperties(list);
    auto output = makeRef<StringOutputStream>();
    auto writer = makeRef<XmlPropertyWriter>(output.get());
    for (uint32_t i = 0; i < list.count(); ++i) writer->writeProperty(list.at(i));
    return output->text();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RefPtr<PropertyList> root = parse(data, size);
    if (!root) return 0;

    auto library = makeRef<PresetLibrary>();
    library->readProperties(*root);
    // The same tree once more, as if it were a factory file: those folders
    // are never written.
    RefPtr<PropertyList> again = parse(data, size);
    if (again) {
        auto factory = makeRef<PresetLibrary>();
        factory->readProperties(*again);
        for (uint32_t i = 0; i < factory->folderCount(); ++i) {
            // Touch every preset the way the plug-in does when applying one.
            PresetFolder* folder = factory->folderAt(i);
            for (uint32_t p = 0; p < folder->presetCount(); ++p) {
                Preset* preset = folder->presetAt(p);
                if (PropertyValue* version = preset->findProperty("Version")) version->getLong();
                PropertyList& properties = preset->properties();
                for (uint32_t k = 0; k < properties.count(); ++k) properties.at(k)->getFloat();
            }
        }
    }

    const std::string text = "<Presets version=\"1\">\n" + write(*library) + "</Presets>\n";
    parse(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    return 0;
}
