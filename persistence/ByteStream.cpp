#include "persistence/ByteStream.h"

#include <unistd.h>

namespace varitap {

bool FileStream::read(void* buffer, size_t length, size_t* count) {
    const ssize_t n = ::read(descriptor_, buffer, length);
    if (n == -1) return false;
    if (count) *count = static_cast<size_t>(n);
    return true;
}

bool FileStream::write(const void* buffer, size_t length, size_t* count) {
    const ssize_t n = ::write(descriptor_, buffer, length);
    if (n == -1) return false;
    if (count) *count = static_cast<size_t>(n);
    return true;
}

bool StringOutputStream::write(const void* buffer, size_t length, size_t* count) {
    text_.append(static_cast<const char*>(buffer), length);
    if (count) *count = length;
    return true;
}

}  // namespace varitap
