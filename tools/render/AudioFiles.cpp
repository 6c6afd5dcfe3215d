#include "tools/render/AudioFiles.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <strings.h>

namespace render {

namespace {

std::string extensionOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    auto dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
    std::string extension = path.substr(dot + 1);
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

std::string folderOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string fileNameOf(const std::string& path) {
    auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

MemorySource::MemorySource(std::vector<float> interleaved, int channels, double sampleRate)
    : samples_(std::move(interleaved)),
      channels_(std::max(1, channels)),
      sampleRate_(sampleRate),
      frames_(static_cast<int64_t>(samples_.size()) / channels_) {}

int64_t MemorySource::read(float* interleaved, int64_t count) {
    int64_t n = std::clamp<int64_t>(frames_ - position_, 0, count);
    std::copy_n(samples_.data() + position_ * channels_, n * channels_, interleaved);
    position_ += n;
    return n;
}

std::unique_ptr<FileSource> FileSource::open(const std::string& path, std::string& error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        error = std::strerror(errno);
        return nullptr;
    }
    if (S_ISDIR(status.st_mode)) {
        error = "is a folder, not an audio file";
        return nullptr;
    }
    if (::access(path.c_str(), R_OK) != 0) {
        error = std::strerror(errno);
        return nullptr;
    }
    std::unique_ptr<FileSource> source(new FileSource);
    source->file_ = sf_open(path.c_str(), SFM_READ, &source->info_);
    if (!source->file_) {
        error = std::string("not an audio file libsndfile can read (") + sf_strerror(nullptr) + ")";
        return nullptr;
    }
    if (source->info_.channels < 1 || source->info_.samplerate < 1) {
        error = "not an audio file libsndfile can read (no channels or no sample rate)";
        return nullptr;
    }
    return source;
}

FileSource::~FileSource() {
    if (file_) sf_close(file_);
}

int64_t FileSource::read(float* interleaved, int64_t count) {
    sf_count_t n = sf_readf_float(file_, interleaved, count);
    return n > 0 ? n : 0;
}

std::unique_ptr<MemorySource> FileSource::readAll() {
    std::vector<float> samples;
    std::vector<float> chunk(4096 * static_cast<size_t>(channels()));
    while (int64_t n = read(chunk.data(), 4096))
        samples.insert(samples.end(), chunk.begin(), chunk.begin() + n * channels());
    return std::make_unique<MemorySource>(std::move(samples), channels(), sampleRate());
}

bool outputFormatFor(const std::string& path, int channels, int sampleRate, int& format,
                     std::string& error) {
    std::string extension = extensionOf(path);
    if (extension.empty()) {
        error = "has no file extension to choose the audio format (use .wav, .flac, .ogg, ...)";
        return false;
    }
    int major = 0;
    int forcedSubtype = 0;
    // libsndfile lists one extension per format; these are the other
    // spellings people use.
    std::string alias = extension;
    if (extension == "aif") alias = "aiff";
    if (extension == "aiff") alias = "aif";
    if (extension == "ogg") alias = "oga";
    if (extension == "oga") alias = "ogg";
    if (extension == "opus") {
        major = SF_FORMAT_OGG;
        forcedSubtype = SF_FORMAT_OPUS;
    }
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
    for (int i = 0; i < count && !major; ++i) {
        SF_FORMAT_INFO info{};
        info.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &info, sizeof(info));
        if (info.extension && (strcasecmp(info.extension, extension.c_str()) == 0 ||
                               strcasecmp(info.extension, alias.c_str()) == 0))
            major = info.format;
    }
    if (!major && extension == "mp3") major = SF_FORMAT_MPEG;
    if (!major) {
        error = "." + extension + " is not an audio format libsndfile can write";
        return false;
    }
    const int subtypes[] = {forcedSubtype,  SF_FORMAT_FLOAT,  SF_FORMAT_PCM_24,
                            SF_FORMAT_PCM_16, SF_FORMAT_VORBIS, SF_FORMAT_MPEG_LAYER_III};
    for (int subtype : subtypes) {
        if (!subtype) continue;
        SF_INFO info{};
        info.channels = channels;
        info.samplerate = sampleRate;
        info.format = major | subtype;
        if (sf_format_check(&info)) {
            format = info.format;
            return true;
        }
    }
    error = "libsndfile cannot write ." + extension + " with " + std::to_string(channels) +
            " channels at " + std::to_string(sampleRate) + " Hz";
    return false;
}

AtomicAudioWriter::~AtomicAudioWriter() { discard(); }

bool AtomicAudioWriter::open(const std::string& path, int channels, int sampleRate,
                             std::string& error) {
    discard();
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        error = "cannot be written (it is a folder)";
        return false;
    }
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = sampleRate;
    if (!outputFormatFor(path, channels, sampleRate, info.format, error)) return false;

    std::string pattern = folderOf(path) + "/." + fileNameOf(path) + ".XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back(0);
    int fd = ::mkstemp(name.data());
    if (fd < 0) {
        error = std::string("cannot be written (") + std::strerror(errno) + ")";
        return false;
    }
    temporary_ = name.data();
    ::fchmod(fd, 0644);
    file_ = sf_open_fd(fd, SFM_WRITE, &info, SF_TRUE);
    if (!file_) {
        ::close(fd);
        error = std::string("cannot be written (") + sf_strerror(nullptr) + ")";
        discard();
        return false;
    }
    // Integer formats clip loud passages instead of wrapping around.
    sf_command(file_, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    path_ = path;
    failed_ = false;
    return true;
}

bool AtomicAudioWriter::write(const float* interleaved, int64_t count) {
    if (!file_ || failed_) return false;
    if (sf_writef_float(file_, interleaved, count) != count) failed_ = true;
    return !failed_;
}

bool AtomicAudioWriter::commit(std::string& error) {
    if (!file_) {
        error = "cannot be written (not open)";
        return false;
    }
    bool ok = !failed_;
    if (!ok) error = std::string("cannot be written (") + sf_strerror(file_) + ")";
    if (sf_close(file_) != 0 && ok) {
        ok = false;
        error = "cannot be written (closing the file failed)";
    }
    file_ = nullptr;
    if (ok && std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        ok = false;
        error = std::string("cannot be written (") + std::strerror(errno) + ")";
    }
    if (ok) temporary_.clear();
    discard();
    return ok;
}

void AtomicAudioWriter::discard() {
    if (file_) sf_close(file_);
    file_ = nullptr;
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
    temporary_.clear();
}

bool writeAudioFile(const std::string& path, const std::vector<float>& interleaved, int channels,
                    int sampleRate, std::string& error) {
    AtomicAudioWriter writer;
    if (!writer.open(path, channels, sampleRate, error)) return false;
    if (!writer.write(interleaved.data(), static_cast<int64_t>(interleaved.size()) / channels)) {
        error = "cannot be written (write failed)";
        return false;
    }
    return writer.commit(error);
}

}  // namespace render
