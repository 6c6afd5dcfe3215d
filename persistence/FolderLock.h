// An exclusive lock on a folder, shared by threads and processes: an flock on
// the folder itself, held from construction to destruction. Varitap's
// read-change-replace cycles on the files of the user's configuration folder
// (the options, the user presets) run under it, so that instances in other
// processes never lose each other's changes. Locking the folder (not a lock
// file) leaves nothing behind in the user's folder.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace varitap {

class FolderLock {
public:
    // any non-audio thread. Waits for the lock; a folder that cannot be
    // opened is not locked (the caller carries on unguarded).
    explicit FolderLock(const std::string& folder)
        : fd_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        if (fd_ >= 0) {
            while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~FolderLock() {
        if (fd_ >= 0) ::close(fd_);  // closing drops the lock
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int fd_;
};

}  // namespace varitap
