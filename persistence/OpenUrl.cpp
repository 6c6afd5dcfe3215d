#include "persistence/OpenUrl.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace varitap {

namespace {

// Only a plain ASCII address is handed on: no blanks or control characters
// (they make no valid address), and no leading '-', which xdg-open would
// take for an option of its own.
bool isPlainAddress(const char* address) {
    if (!address || !*address || *address == '-') return false;
    for (const char* c = address; *c; ++c) {
        const unsigned char byte = static_cast<unsigned char>(*c);
        if (byte <= 0x20 || byte >= 0x7f) return false;
    }
    return true;
}

}  // namespace

void openURL(const char* address) {
    if (!isPlainAddress(address)) return;

    // A short-lived shell starts xdg-open in the background and exits at once;
    // we wait for that shell only. xdg-open (and the browser it starts) is then
    // adopted by init, so no zombie is left in the host and no SIGCHLD handler
    // is needed. The address travels as "$1", never through the shell's parser.
    char shell[] = "sh";
    char option[] = "-c";
    char script[] = "xdg-open \"$1\" >/dev/null 2>&1 &";
    char* arguments[] = {shell, option, script, shell, const_cast<char*>(address), nullptr};

    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0) return;
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // The host's descriptors (audio devices, sockets) must not live on in
    // the browser.
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
#endif

    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return;
    }
    // Hosts block or ignore signals on their threads; the handler starts with
    // an empty mask and default dispositions.
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t child = -1;
    const int result = posix_spawn(&child, "/bin/sh", &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) return;

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace varitap
