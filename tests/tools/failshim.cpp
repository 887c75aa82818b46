// Loaded with LD_PRELOAD into the tool, makes system calls fail the way a
// failing machine makes them fail:
//   TT_FAIL_READ=NAME:BYTES  reads of a file whose path ends in "/NAME" stop
//                            after BYTES bytes in all, then fail with EIO;
//   TT_FAIL_TMPFILE=1        O_TMPFILE fails with EOPNOTSUPP, as on a file
//                            system without unnamed files;
//   TT_FAIL_EMPTY_PATH=1     linkat() with AT_EMPTY_PATH fails with ENOENT,
//                            as for a process without the privilege;
//   TT_FAIL_FSYNC=1          fsync() of a regular file fails with EIO;
//   TT_SHORT_WRITES=BYTES    write() takes at most BYTES bytes at a time.

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

template<typename Function> Function next(const char *name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool isSet(const char *variable)
{
    const char *value = std::getenv(variable);
    return value && *value && std::strcmp(value, "0") != 0;
}

long s_delivered = 0;

// How many bytes a read of \a descriptor may still deliver; -1 for any number.
long readAllowance(int descriptor)
{
    const char *setting = std::getenv("TT_FAIL_READ");
    const char *colon = setting ? std::strrchr(setting, ':') : nullptr;
    if (!colon)
        return -1;
    char link[64];
    char path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const ssize_t size = ::readlink(link, path, sizeof path - 1);
    if (size <= 0)
        return -1;
    path[size] = '\0';
    const size_t nameSize = size_t(colon - setting);
    const char *slash = std::strrchr(path, '/');
    if (!slash || std::strlen(slash + 1) != nameSize || std::strncmp(slash + 1, setting, nameSize))
        return -1;
    return std::atol(colon + 1) - s_delivered;
}

bool isRefusedTmpfile(int flags)
{
    return (flags & O_TMPFILE) == O_TMPFILE && isSet("TT_FAIL_TMPFILE");
}

} // namespace

extern "C" {

ssize_t read(int descriptor, void *data, size_t size)
{
    static const auto real = next<ssize_t (*)(int, void *, size_t)>("read");
    const long allowance = readAllowance(descriptor);
    if (allowance == 0) {
        errno = EIO;
        return -1;
    }
    if (allowance > 0 && size > size_t(allowance))
        size = size_t(allowance);
    const ssize_t got = real(descriptor, data, size);
    if (allowance > 0 && got > 0)
        s_delivered += got;
    return got;
}

int openat(int directory, const char *path, int flags, ...)
{
    static const auto real = next<int (*)(int, const char *, int, ...)>("openat");
    va_list args;
    va_start(args, flags);
    const mode_t mode = va_arg(args, mode_t);
    va_end(args);
    if (isRefusedTmpfile(flags)) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return real(directory, path, flags, mode);
}

int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = va_arg(args, mode_t);
    va_end(args);
    return openat(AT_FDCWD, path, flags, mode);
}

int open64(const char *path, int flags, ...) __attribute__((alias("open")));
int openat64(int directory, const char *path, int flags, ...) __attribute__((alias("openat")));

int fsync(int descriptor)
{
    static const auto real = next<int (*)(int)>("fsync");
    struct stat status;
    if (isSet("TT_FAIL_FSYNC") && ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        errno = EIO;
        return -1;
    }
    return real(descriptor);
}

ssize_t write(int descriptor, const void *data, size_t size)
{
    static const auto real = next<ssize_t (*)(int, const void *, size_t)>("write");
    const char *limit = std::getenv("TT_SHORT_WRITES");
    if (limit && std::atol(limit) > 0 && size > size_t(std::atol(limit)))
        size = size_t(std::atol(limit));
    return real(descriptor, data, size);
}

int linkat(int fromDirectory, const char *from, int toDirectory, const char *to, int flags)
{
    static const auto real = next<int (*)(int, const char *, int, const char *, int)>("linkat");
    if ((flags & AT_EMPTY_PATH) && isSet("TT_FAIL_EMPTY_PATH")) {
        errno = ENOENT;
        return -1;
    }
    return real(fromDirectory, from, toDirectory, to, flags);
}
}
