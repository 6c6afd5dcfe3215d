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

// Each fixture, read and saved again, comes out byte for byte, also with the
// factory folder of another file beside it (factory folders are never written).
void expectSavedAsRead() {
    for (const char* fixture : {"folder-f-preset-p.xml", "empty-library.xml", "full-preset.xml"}) {
        SCOPED_TRACE(fixture);
        auto library = makeRef<PresetLibrary>();
        ASSERT_TRUE(library->loadFile(dataPath(fixture), false));
        ASSERT_TRUE(library->loadFile(dataPath("folder-f-preset-p.xml"), true));
        ASSERT_TRUE(library->folderAt(library->folderCount() - 1)->isFactory());
        TempDir folder;
        ASSERT_TRUE(library->saveFile(folder / "out.xml"));
        EXPECT_EQ(readFile(folder / "out.xml"), readFile(dataPath(fixture)));
    }
}

TEST(XmlPropertyWriterTest, SavedLibrariesMatchTheFormatByteForByte) { expectSavedAsRead(); }

// Hosts call setlocale(LC_ALL, ""); a German locale prints "0,5". The files
// must read and write the same.
TEST(XmlPropertyWriterTest, DecimalCommaLocaleWritesAndReadsTheSameBytes) {
    if (!useGermanLocale()) GTEST_SKIP() << "the de_DE.UTF-8 locale could not be built here";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    EXPECT_STREQ(probe, "0,5");  // the locale really is in force
    expectSavedAsRead();
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
}

}  // namespace
}  // namespace varitap
