#include "tools/render/AudioFiles.h"

#include "RenderTestSupport.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace render;
using namespace rendertest;

TEST(AudioFilesTest, OutputFormatFollowsTheExtension) {
    int format = 0;
    std::string error;
    const std::pair<const char*, int> cases[] = {{"a/b.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT},
                                                 {"b.AIF", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
                                                 {"b.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},  // no float in FLAC
                                                 {"b.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS}};
    for (auto [path, expected] : cases) {
        ASSERT_TRUE(outputFormatFor(path, 2, 44100, format, error)) << path;
        EXPECT_EQ(format, expected) << path;
    }

    EXPECT_FALSE(outputFormatFor("folder.d/noextension", 2, 44100, format, error));
    EXPECT_NE(error.find("extension"), std::string::npos);
}

TEST(AudioFilesTest, WriterLeavesNothingUntilCommitAndNothingWhenDiscarded) {
    TempDir dir;
    const std::string path = dir / "out.wav";
    std::vector<float> frames = {0.25f, -0.5f, 1.5f, 0.0f};  // 1.5 survives in float
    std::string error;
    EXPECT_FALSE(AtomicAudioWriter().open(dir.path(), 2, 44100, error));  // a folder
    EXPECT_NE(error.find("folder"), std::string::npos);
    {
        AtomicAudioWriter writer;
        ASSERT_TRUE(writer.open(path, 2, 22050, error)) << error;
        ASSERT_TRUE(writer.write(frames.data(), 2));
        EXPECT_FALSE(fileExists(path));
        EXPECT_EQ(entries(dir).size(), 1u);  // the hidden temporary file
        // Destroyed without commit: a failed render.
    }
    EXPECT_TRUE(entries(dir).empty());

    ASSERT_TRUE(writeAudioFile(path, frames, 2, 22050, error)) << error;
    EXPECT_EQ(entries(dir), std::vector<std::string>{"out.wav"});
    auto source = FileSource::open(path, error);
    ASSERT_NE(source, nullptr) << error;
    EXPECT_EQ(source->frames(), 2);
    auto audio = source->readAll();
    EXPECT_EQ(audio->channels(), 2);
    EXPECT_EQ(audio->sampleRate(), 22050);
    EXPECT_EQ(audio->samples(), frames);

    // Missing and non-audio inputs are refused through the program itself.
    EXPECT_EQ(FileSource::open(dir.path(), error), nullptr);
    if (::geteuid() != 0) {  // root reads anything
        ::chmod(path.c_str(), 0);
        EXPECT_EQ(FileSource::open(path, error), nullptr);
        EXPECT_NE(error.find("Permission denied"), std::string::npos);
    }
}
