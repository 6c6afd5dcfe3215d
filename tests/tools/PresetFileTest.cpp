#include "tools/render/PresetFile.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <optional>

using namespace render;
using rendertest::TempDir;

namespace {

void writeFile(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

std::string presetXml(const std::string& folder, const std::string& name, const std::string& values) {
    return "<Presets version=\"1\">\n<array name=\"folder\">\n<string name=\"name\" value=\"" + folder +
           "\" />\n<array name=\"preset\">\n<string name=\"name\" value=\"" + name + "\" />\n" + values +
           "</array>\n</array>\n</Presets>\n";
}

std::map<int, float> valuesOf(const std::string& values, int parameterCount = 241) {
    TempDir dir;
    writeFile(dir.file("p.xml"), presetXml("F", "P", values));
    PresetCollection collection;
    EXPECT_TRUE(collection.loadFile(dir.file("p.xml"), false));
    std::map<int, float> result;
    if (collection.presets().size() != 1) return result;
    for (auto [index, value] : presetParameterValues(collection.presets()[0], parameterCount))
        result[index] = value;
    return result;
}

class EnvironmentGuard {
public:
    EnvironmentGuard() {
        for (const char* name : {"XDG_CONFIG_HOME", "HOME"}) {
            const char* value = std::getenv(name);
            saved_.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
        }
    }
    ~EnvironmentGuard() {
        for (auto& [name, value] : saved_) {
            if (value)
                ::setenv(name.c_str(), value->c_str(), 1);
            else
                ::unsetenv(name.c_str());
        }
    }

private:
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace

TEST(PresetFileTest, ReadsFoldersAndPresetsInFileOrder) {
    PresetCollection collection;
    ASSERT_TRUE(collection.loadFile(VARITAP_TEST_DATA_DIR "/tools/test.factory.presets.xml", true));
    const auto& presets = collection.presets();
    ASSERT_EQ(presets.size(), 3u);
    EXPECT_EQ(presets[0].fullName(), "Tests/Half Gain");
    EXPECT_EQ(presets[1].fullName(), "Tests/Old Layout");
    EXPECT_EQ(presets[2].fullName(), "Echoes/Long/Beat");
    for (const Preset& preset : presets) EXPECT_TRUE(preset.factory);
    // Values keep file order and their types; the name is not among them.
    ASSERT_EQ(presets[0].values.size(), 5u);
    EXPECT_EQ(presets[0].values[0].key, "Version");
    EXPECT_EQ(presets[0].values[0].type, PresetValue::kLong);
    EXPECT_EQ(presets[0].values[0].asLong(), 1);
    EXPECT_FLOAT_EQ(presets[0].values[3].asFloat(), 0.5f);

    // A folder name with a slash is still found as a whole.
    ASSERT_NE(collection.find("Echoes/Long/Beat"), nullptr);
    EXPECT_EQ(collection.find("Echoes/Long/Beat")->name, "Beat");
    EXPECT_EQ(collection.find("Tests/Missing"), nullptr);
    EXPECT_EQ(collection.find("Tests"), nullptr);
}

TEST(PresetFileTest, BrokenAndUnexpectedContentLoadsNothingOrIsSkipped) {
    TempDir dir;
    PresetCollection collection;
    EXPECT_FALSE(collection.loadFile(dir.file("missing.xml"), false));
    EXPECT_FALSE(collection.loadFile("", false));

    // Not well formed (a raw ampersand in a name): nothing at all from the file.
    writeFile(dir.file("bad.xml"), presetXml("A & B", "P", "<float name=\"0\" value=\"0.5\" />\n"));
    EXPECT_FALSE(collection.loadFile(dir.file("bad.xml"), false));
    // Another root element.
    writeFile(dir.file("other.xml"), "<Other><array name=\"folder\"><array name=\"preset\"/></array></Other>");
    EXPECT_FALSE(collection.loadFile(dir.file("other.xml"), false));
    EXPECT_TRUE(collection.presets().empty());

    // Elements without a name, numbers without a value, unknown elements and
    // unnamed arrays (with everything inside them) are skipped; a folder's
    // name may come after its presets; a non-string name reads as empty.
    writeFile(dir.file("odd.xml"),
              "<Presets version=\"7\">\n"
              "<array name=\"folder\">\n"
              "  <array name=\"preset\">\n"
              "    <long name=\"name\" value=\"5\" />\n"
              "    <float value=\"0.9\" />\n"
              "    <float name=\"3\" />\n"
              "    <double name=\"4\" value=\"0.9\" />\n"
              "    <array><float name=\"5\" value=\"0.9\" /></array>\n"
              "    <float name=\"6\" value=\"junk\" />\n"
              "    <float name=\"7\" value=\"0.75\" />\n"
              "  </array>\n"
              "  <string name=\"name\" value=\"Late\" />\n"
              "</array>\n"
              "<array name=\"notafolder\"><array name=\"preset\"/></array>\n"
              "</Presets>\n");
    ASSERT_TRUE(collection.loadFile(dir.file("odd.xml"), false));
    ASSERT_EQ(collection.presets().size(), 1u);
    const Preset& preset = collection.presets()[0];
    EXPECT_EQ(preset.folder, "Late");
    EXPECT_EQ(preset.name, "");
    EXPECT_FALSE(preset.factory);
    ASSERT_EQ(preset.values.size(), 2u);
    EXPECT_EQ(preset.values[0].key, "6");
    EXPECT_FLOAT_EQ(preset.values[0].asFloat(), 0.0f);  // text that does not scan reads 0
    EXPECT_EQ(preset.values[1].key, "7");
}

TEST(PresetFileTest, LibraryReadsFactoryThenUserFileFromTheConfigurationFolder) {
    EnvironmentGuard guard;
    TempDir dir;
    ::setenv("XDG_CONFIG_HOME", dir.path().c_str(), 1);
    EXPECT_EQ(userPresetsPath(), dir.path() + "/brelmo.varitap.presets.xml");
    ::setenv("XDG_CONFIG_HOME", "", 1);
    ::setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(userPresetsPath(), "/home/someone/.config/brelmo.varitap.presets.xml");
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(userPresetsPath(), "/home/someone/.config/brelmo.varitap.presets.xml");

    EXPECT_EQ(factoryPresetsPath(""), "");
    EXPECT_EQ(factoryPresetsPath("/b/X.vst"), "/b/X.vst/Contents/Resources/varitap.factory.presets.xml");

    ::setenv("XDG_CONFIG_HOME", dir.path().c_str(), 1);
    writeFile(dir.file("brelmo.varitap.presets.xml"),
              presetXml("Tests", "Half Gain", "<float name=\"0\" value=\"0.25\" />\n"));
    PresetCollection library;
    library.loadLibrary(TEST_DELAY_BUNDLE);
    ASSERT_EQ(library.presets().size(), 4u);
    EXPECT_TRUE(library.presets()[0].factory);
    EXPECT_FALSE(library.presets()[3].factory);
    EXPECT_EQ(library.presets()[3].fullName(), "Tests/Half Gain");
    // Same full name in both files: the factory one comes first.
    EXPECT_TRUE(library.find("Tests/Half Gain")->factory);
}

TEST(PresetFileTest, FirstLayoutPresetsAreConvertedAndCurrentOnesAreNot) {
    // No "Version": the first layout (two inputs, two outputs, three buses).
    auto old = valuesOf(
        "<float name=\"0\" value=\"0.5\" />\n<float name=\"1\" value=\"0.7\" />\n"
        "<float name=\"2\" value=\"0.3\" />\n<float name=\"3\" value=\"1.0\" />\n"
        "<float name=\"10\" value=\"0.6\" />\n<float name=\"11\" value=\"0.2\" />\n"
        "<float name=\"12\" value=\"1.0\" />\n"
        "<float name=\"92\" value=\"5.0\" />\n<float name=\"107\" value=\"25.0\" />\n"
        "<float name=\"93\" value=\"5.0\" />\n<float name=\"21\" value=\"0.7\" />\n");
    EXPECT_FLOAT_EQ(old[0], 22.0f / 44.0f);  // old Out 2 -> Out 2
    EXPECT_FLOAT_EQ(old[1], 41.0f / 44.0f);  // old bus 1 -> Intern 1
    EXPECT_FLOAT_EQ(old[2], 2.0f / 44.0f);   // In 2 stays
    EXPECT_FLOAT_EQ(old[3], 1.0f);           // 8 + 36 = 44: Intern 4
    EXPECT_FLOAT_EQ(old[10], 21.0f / 24.0f);
    EXPECT_FLOAT_EQ(old[11], 1.0f / 24.0f);
    EXPECT_FLOAT_EQ(old[12], 1.0f);          // 24 / 24, limited to 1
    EXPECT_FLOAT_EQ(old[92], 20.0f);         // a modulator may not aim at routing
    EXPECT_FLOAT_EQ(old[107], 25.0f);
    EXPECT_FLOAT_EQ(old[93], 5.0f);          // "Speed", not an "Index"
    EXPECT_FLOAT_EQ(old[21], 0.7f);

    auto current = valuesOf(
        "<long name=\"Version\" value=\"1\" />\n<float name=\"0\" value=\"0.5\" />\n"
        "<float name=\"1\" value=\"0.7\" />\n<float name=\"92\" value=\"5.0\" />\n");
    EXPECT_FLOAT_EQ(current[0], 0.5f);
    EXPECT_FLOAT_EQ(current[1], 0.7f);
    EXPECT_FLOAT_EQ(current[92], 5.0f);

    // Version 0 written out converts too; any other version does not.
    EXPECT_FLOAT_EQ(valuesOf("<long name=\"Version\" value=\"0\" />\n<float name=\"1\" value=\"0.7\" />\n")[1],
                    41.0f / 44.0f);
    EXPECT_FLOAT_EQ(valuesOf("<long name=\"Version\" value=\"9\" />\n<float name=\"1\" value=\"0.7\" />\n")[1],
                    0.7f);
}

TEST(PresetFileTest, KeysAndNumbersReadAsVaritapReadsThem) {
    auto values = valuesOf(
        "<long name=\"Version\" value=\"1\" />\n<float name=\"-1\" value=\"0.5\" />\n"
        "<float name=\"241\" value=\"0.5\" />\n<float name=\"12abc\" value=\"0.25\" />\n"
        "<string name=\"13\" value=\"0.5\" />\n<long name=\"14\" value=\"1\" />\n"
        "<float name=\"NumInputs\" value=\"2\" />\n");
    EXPECT_EQ(values.count(-1), 0u);
    EXPECT_EQ(values.count(241), 0u);
    EXPECT_FLOAT_EQ(values.at(12), 0.25f);  // the key scans as 12
    EXPECT_FLOAT_EQ(values.at(13), 0.0f);   // a string has no number
    float bits;
    int32_t one = 1;
    std::memcpy(&bits, &one, sizeof(bits));
    EXPECT_EQ(values.at(14), bits);  // a long's cell read as a float
    EXPECT_EQ(values.size(), 3u);

    // The parameter count of the plug-in limits the indices.
    EXPECT_EQ(valuesOf("<long name=\"Version\" value=\"1\" />\n<float name=\"2\" value=\"1\" />\n"
                       "<float name=\"3\" value=\"1\" />\n",
                       3)
                  .size(),
              1u);
    // A "Version" stored as a float is its bit pattern as a number: not 0, so
    // the values are taken as they are.
    EXPECT_FLOAT_EQ(valuesOf("<float name=\"Version\" value=\"0.0001\" />\n<float name=\"1\" value=\"0.7\" />\n")[1],
                    0.7f);
}
