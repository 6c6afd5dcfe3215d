// Byte streams for the presets file: an abstract stream with fixed-size reads
// and writes in the machine's byte order, a stream over a POSIX file
// descriptor, and one into memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "persistence/RefObject.h"

namespace varitap {

class ByteStream : public RefObject {
public:
    // Each fixed-size form passes the caller's buffer to read or write with
    // its length and no count.
    virtual bool read1(void* buffer) { return read(buffer, 1, nullptr); }
    virtual bool read2(void* buffer) { return read(buffer, 2, nullptr); }
    virtual bool read4(void* buffer) { return read(buffer, 4, nullptr); }
    virtual bool readFloat(float* value) { return read(value, 4, nullptr); }
    virtual bool read8(void* buffer) { return read(buffer, 8, nullptr); }
    virtual bool write1(const void* buffer) { return write(buffer, 1, nullptr); }
    virtual bool write2(const void* buffer) { return write(buffer, 2, nullptr); }
    virtual bool write4(const void* buffer) { return write(buffer, 4, nullptr); }
    virtual bool writeFloat(const float* value) { return write(value, 4, nullptr); }
    virtual bool write8(const void* buffer) { return write(buffer, 8, nullptr); }

    // True on success; the number of bytes moved goes to count when given.
    // A short count is success.
    virtual bool read(void* buffer, size_t length, size_t* count) = 0;
    virtual bool write(const void* buffer, size_t length, size_t* count) = 0;
};

// A stream over an open descriptor that it does not own: the caller opens and
// closes it. One system call per read or write. any thread, one at a time.
class FileStream : public ByteStream {
public:
    explicit FileStream(int descriptor) : descriptor_(descriptor) {}

    bool read(void* buffer, size_t length, size_t* count) override;
    bool write(const void* buffer, size_t length, size_t* count) override;

    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

// A stream that collects what is written to it in memory (reads fail): a
// writer's text without a file. any thread, one at a time.
class StringOutputStream : public ByteStream {
public:
    bool read(void*, size_t, size_t*) override { return false; }
    bool write(const void* buffer, size_t length, size_t* count) override;

    const std::string& text() const { return text_; }

private:
    std::string text_;
};

}  // namespace varitap
