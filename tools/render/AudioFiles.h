// Audio in and out through libsndfile: any file it reads, and output in the
// format the output path's extension names, written to a temporary file in
// the same folder and renamed at the end so that a failed render never leaves
// a half-written file behind.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace render {

// Interleaved float frames, read in order.
class AudioSource {
public:
    virtual ~AudioSource() = default;
    virtual int channels() const = 0;
    virtual double sampleRate() const = 0;
    virtual int64_t frames() const = 0;
    // Reads up to count frames; returns how many were read (0 at the end).
    virtual int64_t read(float* interleaved, int64_t count) = 0;
};

// A signal held in memory (the demo, or a file read whole for benchmarks).
class MemorySource : public AudioSource {
public:
    MemorySource(std::vector<float> interleaved, int channels, double sampleRate);
    int channels() const override { return channels_; }
    double sampleRate() const override { return sampleRate_; }
    int64_t frames() const override { return frames_; }
    int64_t read(float* interleaved, int64_t count) override;
    void rewind() { position_ = 0; }
    const std::vector<float>& samples() const { return samples_; }

private:
    std::vector<float> samples_;
    int channels_;
    double sampleRate_;
    int64_t frames_;
    int64_t position_ = 0;
};

class FileSource : public AudioSource {
public:
    // Null with error set ("no such file", "not an audio file libsndfile
    // reads: ...") when the file cannot be read.
    static std::unique_ptr<FileSource> open(const std::string& path, std::string& error);
    ~FileSource() override;
    int channels() const override { return info_.channels; }
    double sampleRate() const override { return info_.samplerate; }
    int64_t frames() const override { return info_.frames; }
    int64_t read(float* interleaved, int64_t count) override;
    // The whole rest of the file in memory.
    std::unique_ptr<MemorySource> readAll();

private:
    FileSource() = default;
    SNDFILE* file_ = nullptr;
    SF_INFO info_{};
};

// libsndfile's major format for the path's extension, with 32-bit float
// samples where the format has them, else 24-bit, 16-bit or the format's
// compressed form. False with error set for an extension it cannot write.
bool outputFormatFor(const std::string& path, int channels, int sampleRate, int& format,
                     std::string& error);

class AtomicAudioWriter {
public:
    AtomicAudioWriter() = default;
    ~AtomicAudioWriter();  // removes the temporary file unless committed
    AtomicAudioWriter(const AtomicAudioWriter&) = delete;
    AtomicAudioWriter& operator=(const AtomicAudioWriter&) = delete;

    // Creates the temporary file next to path. False with error set when the
    // folder cannot be written or the format is unknown.
    bool open(const std::string& path, int channels, int sampleRate, std::string& error);
    bool write(const float* interleaved, int64_t count);
    // Closes the file and renames it over path.
    bool commit(std::string& error);
    void discard();

private:
    std::string path_, temporary_;
    SNDFILE* file_ = nullptr;
    bool failed_ = false;
};

// Writes a float buffer with the same temporary-file rule (tests, the demo
// input file).
bool writeAudioFile(const std::string& path, const std::vector<float>& interleaved, int channels,
                    int sampleRate, std::string& error);

}  // namespace render
