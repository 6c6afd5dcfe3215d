#include "persistence/PresetXmlReader.h"

#include <gtest/gtest.h>
#include <libxml/xmlerror.h>

#include "PresetTestSupport.h"
#include "persistence/PresetLibrary.h"

namespace varitap {
namespace {

using namespace test;

const PropertyList& arrayOf(const PropertyValue* value) {
    static PropertyList none;
    return value && value->getArray() ? *value->getArray() : none;
}

// What the writer wrote reads back whole: XmlPropertyWriterTest.SavedLibrariesMatchTheFormatByteForByte
// reads every fixture and writes it again byte for byte.

// A host that uses libxml2 itself keeps its own error handler: the reader
// silences libxml2 only while it parses, and gives the handler back.
int hostErrors = 0;
void hostErrorHandler(void*, const char*, ...) { ++hostErrors; }

TEST(PresetXmlReaderTest, BrokenFilesLoadNothingAndReportNothing) {
    int context = 0;
    xmlSetGenericErrorFunc(&context, hostErrorHandler);
    ::testing::internal::CaptureStderr();
    for (const char* name : {"malformed-cut.xml", "ampersand-name.xml", "binary-garbage.xml",
                             "entity-declarations.xml"}) {
        EXPECT_FALSE(parseFile(dataPath(name))) << name;
        auto library = makeRef<PresetLibrary>();
        EXPECT_TRUE(library->loadFile(dataPath(name), false));
        EXPECT_EQ(library->folderCount(), 0u) << name;
    }
    // The last two look like UTF-16 or UCS-4 and then fail to convert:
    // libxml2 reports these on its process-wide error channel, not the parser's.
    TempDir folder;
    for (const std::string& bytes : {std::string(), std::string("<Presets><string name=\"a\" value=\"&nope;\" /></Presets>"),
                                     std::string("<\0?\0x\0\0\xD8" "A\0", 10),
                                     std::string("\0\0\0<\0\0\0\x02\xB2" "ets", 12)}) {
        writeFile(folder / "broken.xml", bytes);
        EXPECT_FALSE(parseFile(folder / "broken.xml")) << bytes;
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(hostErrors, 0);
    EXPECT_EQ(xmlGenericError, &hostErrorHandler);
    EXPECT_EQ(xmlGenericErrorContext, &context);
    xmlSetGenericErrorFunc(nullptr, nullptr);
}

TEST(PresetXmlReaderTest, OddElementsAreIgnoredWithoutDisturbingTheTree) {
    ::testing::internal::CaptureStderr();
    RefPtr<PropertyList> root = parseFile(dataPath("odd-elements.xml"));
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
    ASSERT_TRUE(root);  // root version 7 reads the same way
    ASSERT_EQ(root->count(), 3u);
    EXPECT_EQ(root->at(0)->key(), "stray");
    EXPECT_EQ(root->at(0)->getFloat(), 1.5);

    const PropertyList& first = arrayOf(root->at(1));
    // name, then the one named preset: the element without attributes and the
    // array without a name were skipped with their contents.
    ASSERT_EQ(first.count(), 2u);
    EXPECT_EQ(first.at(0)->getString(), "Odd Name");  // a raw TAB becomes a space
    EXPECT_EQ(first.at(1)->key(), "preset");
    const PropertyList& preset = arrayOf(first.at(1));
    std::vector<std::string> keys;
    for (uint32_t i = 0; i < preset.count(); ++i) keys.push_back(preset.at(i)->key());
    // "0" had no value; "unknown" and the nested Presets are not values; the
    // float inside the nested Presets still counts and the nested end tag does
    // not end the root. (No temporary array-name entry either, here or above.)
    EXPECT_EQ(keys, (std::vector<std::string>{"name", "1", "Version", "2", "3"}));
    EXPECT_EQ(preset.at(1)->getFloat(), static_cast<double>(0.12345678901234f));
    EXPECT_EQ(preset.at(3)->getFloat(), 0.25);
    EXPECT_EQ(preset.at(4)->getFloat(), 0.75);

    const PropertyList& second = arrayOf(root->at(2));
    ASSERT_EQ(second.count(), 1u);
    EXPECT_EQ(second.at(0)->getString(), "Second");

    // Only the inside of the root element counts.
    root = parseFile(dataPath("outside-root.xml"));
    ASSERT_TRUE(root);
    ASSERT_EQ(root->count(), 1u);
    EXPECT_EQ(arrayOf(root->at(0)).at(0)->getString(), "Inside");
}

TEST(PresetXmlReaderTest, NumberTextsScanLikeTheCFormats) {
    RefPtr<PropertyList> root = parseFile(dataPath("number-texts.xml"));
    ASSERT_TRUE(root);
    const PropertyList& numbers = arrayOf(root->findProperty("numbers"));
    ASSERT_EQ(numbers.count(), 7u);
    EXPECT_EQ(numbers.findProperty("word")->getFloat(), 0.0);
    EXPECT_EQ(numbers.findProperty("trailing")->getFloat(), 2.5);
    EXPECT_EQ(numbers.findProperty("exponent")->getFloat(), static_cast<double>(1e-3f));
    EXPECT_EQ(numbers.findProperty("long")->getLong(), 12);
    EXPECT_EQ(numbers.findProperty("negative")->getLong(), -7);
    EXPECT_EQ(numbers.findProperty("empty")->type(), PropertyType::Long);
    EXPECT_EQ(numbers.findProperty("empty")->getLong(), 0);
    EXPECT_EQ(numbers.findProperty("")->getString(), "empty key");
}

}  // namespace
}  // namespace varitap
