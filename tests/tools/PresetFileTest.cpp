#include "tools/render/PresetFile.h"

#include "persistence/PresetParameters.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <map>
#include <optional>

using namespace render;
using namespace rendertest;
using varitap::test::writeFile;

namespace {

// A folder of one preset, as the presets file holds it.
std::string folderXml(const std::string& folder, const std::string& name, const std::string& values) {
    return "<array name=\"folder\">\n<string name=\"name\" value=\"" + folder +
           "\" />\n<array name=\"preset\">\n<string name=\"name\" value=\"" + name + "\" />\n" + values +
           "</array>\n</array>\n";
}

std::string presetsXml(const std::string& folders) { return "<Presets version=\"1\">\n" + folders + "</Presets>\n"; }

std::map<int, float> valuesOf(const std::string& values, int parameterCount = 241) {
    TempDir dir;
    writeFile(dir / "p.xml", presetsXml(folderXml("F", "P", values)));
    auto library = varitap::makeRef<varitap::PresetLibrary>();
    EXPECT_TRUE(library->loadFile(dir / "p.xml", false));
    std::map<int, float> result;
    const std::vector<PresetEntry> presets = listPresets(*library);
    EXPECT_EQ(presets.size(), 1u);
    if (presets.size() != 1) return result;
    for (auto [index, value] : varitap::presetParameterValues(*presets[0].preset, parameterCount))
        result[index] = value;
    return result;
}

}  // namespace

using PresetFileTest = RenderTest;

TEST_F(PresetFileTest, LibraryListsFactoryThenUserPresetsByFullNameAndNeverWrites) {
    const std::string userFile = dir / "brelmo.varitap.presets.xml";
    EXPECT_EQ(userPresetsPath(), userFile);
    EXPECT_EQ(factoryPresetsPath(""), "");
    // Named even when it is not there: error messages show where it was looked for.
    EXPECT_EQ(factoryPresetsPath("/b/X.vst"), "/b/X.vst/Contents/Resources/varitap.factory.presets.xml");

    // The name of a factory preset, and a folder name with a slash.
    const std::string userText = presetsXml(folderXml("Ping-Pong", "Ping-Pong Filtered", "") +
                                            folderXml("Echoes/Long", "Beat", ""));
    writeFile(userFile, userText);
    {
        auto library = varitap::makeRef<varitap::PresetLibrary>();
        loadPresetLibrary(*library, kBundle);
        const std::vector<PresetEntry> presets = listPresets(*library);
        ASSERT_GT(presets.size(), 30u);
        const size_t factory = presets.size() - 2;
        for (size_t i = 0; i < presets.size(); ++i) EXPECT_EQ(presets[i].preset->isFactory(), i < factory) << i;
        EXPECT_EQ(presets[factory].fullName, "Ping-Pong/Ping-Pong Filtered");
        EXPECT_EQ(presets[factory + 1].fullName, "Echoes/Long/Beat");
        // Same full name in both files: the factory one comes first.
        ASSERT_NE(findPreset(*library, "Ping-Pong/Ping-Pong Filtered"), nullptr);
        EXPECT_TRUE(findPreset(*library, "Ping-Pong/Ping-Pong Filtered")->isFactory());
        // A folder name with a slash is still found as a whole.
        EXPECT_EQ(findPreset(*library, "Echoes/Long/Beat"), presets[factory + 1].preset);
        for (const char* missing : {"Ping-Pong/Missing", "Ping-Pong", "Long/Beat", "Echoes/Long"})
            EXPECT_EQ(findPreset(*library, missing), nullptr) << missing;
    }
    // The tool's library is its own: dropping it leaves the user's file alone.
    EXPECT_EQ(readFile(userFile), userText);
    EXPECT_EQ(entries(dir), std::vector<std::string>{"brelmo.varitap.presets.xml"});

    // Without a bundle only the user's presets are there.
    auto userOnly = varitap::makeRef<varitap::PresetLibrary>();
    loadPresetLibrary(*userOnly, "");
    ASSERT_EQ(listPresets(*userOnly).size(), 2u);
    EXPECT_FALSE(listPresets(*userOnly)[0].preset->isFactory());
}

TEST_F(PresetFileTest, KeysAndNumbersReadAsVaritapReadsThem) {
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
    // Version 0 written out converts from the first layout; any other version
    // does not, and a "Version" stored as a float is its bit pattern as a
    // number: not 0, so the values are taken as they are.
    EXPECT_FLOAT_EQ(valuesOf("<long name=\"Version\" value=\"0\" />\n<float name=\"1\" value=\"0.7\" />\n")[1],
                    41.0f / 44.0f);
    EXPECT_FLOAT_EQ(valuesOf("<long name=\"Version\" value=\"9\" />\n<float name=\"1\" value=\"0.7\" />\n")[1],
                    0.7f);
    EXPECT_FLOAT_EQ(valuesOf("<float name=\"Version\" value=\"0.0001\" />\n<float name=\"1\" value=\"0.7\" />\n")[1],
                    0.7f);
}
