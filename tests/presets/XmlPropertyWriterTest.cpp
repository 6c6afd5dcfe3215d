#include "persistence/XmlPropertyWriter.h"

#include <gtest/gtest.h>

#include <clocale>

#include "PresetTestSupport.h"
#include "persistence/PresetLibrary.h"

namespace varitap {
namespace {

using namespace test;

// The library's memory stream, failing every write from a given one on.
class FailingStream : public StringOutputStream {
public:
    explicit FailingStream(int failFrom) : failFrom_(failFrom) {}
    bool write(const void* buffer, size_t length, size_t* count) override {
        if (failFrom_ >= 0 && writes_ >= failFrom_) return false;
        ++writes_;
        return StringOutputStream::write(buffer, length, count);
    }
    int writes_ = 0;

private:
    int failFrom_;
};

// A library of one folder with one preset: the header values, then `values`.
RefPtr<PresetLibrary> libraryWith(const char* folder, const char* name, std::initializer_list<PropertyValue*> values) {
    auto library = makeRef<PresetLibrary>();
    auto preset = makeRef<Preset>(name);
    addValues(preset.get(), {PropertyValue::makeLong("Version", 1), PropertyValue::makeLong("NumInputs", 2),
                             PropertyValue::makeLong("NumOutputs", 2)});
    addValues(preset.get(), values);
    library->addFolder(folder)->addPreset(preset.get());
    return library;
}

// The folder "F" / preset "P" example.
RefPtr<PresetLibrary> libraryWithFP() {
    return libraryWith("F", "P", {PropertyValue::makeFloat("0", 0.5), PropertyValue::makeFloat("1", 0.1),
                                  PropertyValue::makeFloat("2", -3.25)});
}

RefPtr<PresetLibrary> libraryWithFullPreset() {
    auto library = libraryWith("Full", "All 241", {});
    for (int i = 0; i < 241; ++i)
        addValues(library->folderAt(0)->presetAt(0),
                  {PropertyValue::makeFloat(std::to_string(i).c_str(), fullPresetValue(i))});
    return library;
}

void expectSavedBytes(PresetLibrary* library, const char* fixture) {
    TempDir folder;
    ASSERT_TRUE(library->saveFile(folder / "out.xml"));
    EXPECT_EQ(readFile(folder / "out.xml"), readFile(dataPath(fixture))) << fixture;
}

TEST(XmlPropertyWriterTest, SavedLibrariesMatchTheFormatByteForByte) {
    auto fp = libraryWithFP();
    expectSavedBytes(fp.get(), "folder-f-preset-p.xml");
    expectSavedBytes(makeRef<PresetLibrary>().get(), "empty-library.xml");
    expectSavedBytes(libraryWithFullPreset().get(), "full-preset.xml");

    // Factory folders are never written: with one added the bytes stay the same.
    ASSERT_TRUE(fp->loadFile(dataPath("folder-f-preset-p.xml"), true));
    ASSERT_EQ(fp->folderCount(), 2u);
    EXPECT_TRUE(fp->folderAt(1)->isFactory());
    expectSavedBytes(fp.get(), "folder-f-preset-p.xml");
}

// Hosts call setlocale(LC_ALL, ""); a German locale prints "0,5". The file
// must not change, and its numbers read back the same.
TEST(XmlPropertyWriterTest, DecimalCommaLocaleWritesAndReadsTheSameBytes) {
    if (!useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    EXPECT_STREQ(probe, "0,5");  // the locale really is in force
    expectSavedBytes(libraryWithFP().get(), "folder-f-preset-p.xml");
    expectSavedBytes(libraryWithFullPreset().get(), "full-preset.xml");

    auto back = makeRef<PresetLibrary>();
    ASSERT_TRUE(back->loadFile(dataPath("folder-f-preset-p.xml"), false));
    ASSERT_EQ(back->folderCount(), 1u);
    EXPECT_EQ(back->folderAt(0)->presetAt(0)->findProperty("0")->getFloat(), 0.5);
    EXPECT_EQ(back->folderAt(0)->presetAt(0)->findProperty("2")->getFloat(), -3.25);
    std::setlocale(LC_ALL, "C");
}

TEST(XmlPropertyWriterTest, OpenTagAttributesAndRawText) {
    auto stream = makeRef<StringOutputStream>();
    auto writer = makeRef<XmlPropertyWriter>(stream.get());
    PropertyList attributes;
    PropertyList inner;
    for (auto* v : {PropertyValue::makeLong("n", -42), PropertyValue::makeFloat("f", 0.25),
                    PropertyValue::makeArray("skipped", inner),
                    PropertyValue::makeString("s", "a&b<\"c\"")}) {
        attributes.append(v);
        v->release();
    }
    EXPECT_TRUE(writer->writeOpenTag("tag", &attributes, true));
    EXPECT_EQ(writer->depth(), 0u);
    EXPECT_TRUE(writer->writeOpenTag("open", nullptr, false));
    EXPECT_EQ(writer->depth(), 1u);
    auto raw = RefPtr<PropertyValue>::adopt(PropertyValue::makeString("k\"&", "<v>"));
    EXPECT_TRUE(writer->writeProperty(raw.get()));
    EXPECT_TRUE(writer->writeCloseTag("open"));
    EXPECT_EQ(stream->text(),
              "<tag n=\"-42\" f=\"0.250000\" s=\"a&b<\"c\"\" />\n"
              "<open>\n"
              "\t<string name=\"k\"&\" value=\"<v>\" />\n"
              "</open>\n");
    EXPECT_EQ(writer->bytesRequested(), stream->text().size());
}

TEST(XmlPropertyWriterTest, StopsAtTheFirstFailedWrite) {
    PropertyList children;
    for (auto* v : {PropertyValue::makeLong("a", 1), PropertyValue::makeLong("b", 2)}) {
        children.append(v);
        v->release();
    }
    auto array = RefPtr<PropertyValue>::adopt(PropertyValue::makeArray("arr", children));
    // Writes: "<array ...>" (1), TAB (2), "<long a>" (3), TAB (4), "<long b>" (5), "</array>" (6).
    for (int failFrom = 0; failFrom < 6; ++failFrom) {
        auto stream = makeRef<FailingStream>(failFrom);
        auto writer = makeRef<XmlPropertyWriter>(stream.get());
        EXPECT_FALSE(writer->writeProperty(array.get())) << failFrom;
        // Between the array's start line and its end line the depth is one.
        EXPECT_EQ(writer->depth(), failFrom == 0 || failFrom == 5 ? 0u : 1u) << failFrom;
        EXPECT_EQ(stream->writes_, failFrom);
    }
    auto stream = makeRef<FailingStream>(-1);
    auto writer = makeRef<XmlPropertyWriter>(stream.get());
    EXPECT_TRUE(writer->writeProperty(array.get()));
    EXPECT_EQ(stream->writes_, 6);
    EXPECT_EQ(stream->text(), "<array name=\"arr\">\n\t<long name=\"a\" value=\"1\" />\n"
                             "\t<long name=\"b\" value=\"2\" />\n</array>\n");
}

}  // namespace
}  // namespace varitap
