/* A disk that takes 20 ms for an fsync of the files whose names hold "slow": loaded before the service. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

int fsync(int fd) {
    int (*const real)(int) = (int (*)(int))dlsym(RTLD_NEXT, "fsync");
    const struct timespec wait = {0, 20000000};
    char link[32];
    char path[4096] = "";
    snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    if (readlink(link, path, sizeof path - 1) > 0 && strstr(path, "slow") != NULL) {
        nanosleep(&wait, NULL);
    }
    return real(fd);
}
