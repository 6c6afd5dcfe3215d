#include "tools/render/PresetFile.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>

using namespace render;
using namespace rendertest;
using varitap::test::writeFile;

namespace {

// A folder of one preset, as the presets file holds it.
std::string folderXml(const std::string& folder, const std::string& name) {
    return "<array name=\"folder\">\n<string name=\"name\" value=\"" + folder +
           "\" />\n<array name=\"preset\">\n<string name=\"name\" value=\"" + name + "\" />\n</array>\n</array>\n";
}

}  // namespace

using PresetFileTest = RenderTest;

TEST_F(PresetFileTest, LibraryListsFactoryThenUserPresetsByFullNameAndNeverWrites) {
    const std::string userFile = dir / "brelmo.varitap.presets.xml";
    EXPECT_EQ(factoryPresetsPath(""), "");
    // Named even when it is not there: error messages show where it was looked for.
    EXPECT_EQ(factoryPresetsPath("/b/X.vst"), "/b/X.vst/Contents/Resources/varitap.factory.presets.xml");

    // The name of a factory preset, and a folder name with a slash.
    const std::string userText = "<Presets version=\"1\">\n" + folderXml("Ping-Pong", "Ping-Pong Filtered") +
                                 folderXml("Echoes/Long", "Beat") + "</Presets>\n";
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
