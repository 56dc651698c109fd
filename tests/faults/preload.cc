// SPDX-License-Identifier: BSD-3-Clause
// Loaded before the C library, this makes one call to the system fail, or something happen to a file before it. Only calls
// on files of one folder count, and for mmap those without a file, through all processes of a run. The environment says
// what: KXDCM_FAULT is "FUNCTION NUMBER ACTION", FUNCTION with "+" at its end for the call of that number and all later
// ones; ACTION is an error number, "kill", which ends the process when it is not the first, or "replace", "cut", "remove" or
// "pipe", which is done to KXDCM_FAULT_FILE, with KXDCM_FAULT_OTHER for a replacement. KXDCM_FAULT_FOLDER is the folder, KXDCM_FAULT_COUNTER a file of eight bytes for the
// count.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/xattr.h>
#include <utility>

#define KXDCM_EXPORTED extern "C" __attribute__((visibility("default")))

namespace {

template <typename Function>
Function* next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string variable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

struct Fault {
    std::string function;
    std::uint64_t number = 0;
    std::string action;
    bool isLasting = false;
    std::string folder = variable("KXDCM_FAULT_FOLDER");
    std::atomic<std::uint64_t>* count = nullptr;
    pid_t first = getpid();

    Fault()
    {
        std::array<char, 64> name = {};
        std::array<char, 16> what = {};
        if (std::sscanf(variable("KXDCM_FAULT").c_str(), "%63s %lu %15s", name.data(), &number, what.data()) != 3)
            return;
        function = name.data();
        action = what.data();
        isLasting = function.ends_with('+');
        if (isLasting) function.pop_back();
        const int file = next<int(const char*, int, ...)>("open")(variable("KXDCM_FAULT_COUNTER").c_str(), O_RDWR);
        void* const memory =
            next<decltype(mmap)>("mmap")(nullptr, sizeof *count, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        if (memory != MAP_FAILED) count = static_cast<std::atomic<std::uint64_t>*>(memory);
        next<decltype(close)>("close")(file);
    }

    bool concerns(std::string_view path) const { return path.starts_with(folder); }

    bool concerns(int descriptor) const
    {
        std::array<char, PATH_MAX> path;
        const ssize_t bytes =
            readlink(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), path.data(), path.size());
        return bytes > 0 && concerns(std::string_view(path.data(), static_cast<std::size_t>(bytes)));
    }

    /// @return whether this call is to fail, with errno set.
    bool strikes()
    {
        const std::uint64_t now = ++*count;
        if (now != number && (!isLasting || now < number)) return false;
        if (action == "kill") return getpid() != first && kill(getpid(), SIGKILL) != 0;
        const std::string file = variable("KXDCM_FAULT_FILE");
        if (action == "replace")
            return next<decltype(rename)>("rename")(variable("KXDCM_FAULT_OTHER").c_str(), file.c_str()) != 0;
        if (action == "cut") return truncate(file.c_str(), 1000) != 0;
        if (action == "pipe") return unlink(file.c_str()) != 0 || mkfifo(file.c_str(), 0600) != 0;
        if (action == "remove") return unlink(file.c_str()) != 0;
        errno = std::atoi(action.c_str());
        return true;
    }
};

Fault& fault()
{
    static Fault one;
    return one;
}

std::string absolute(const char* path)
{
    if (*path == '/') return path;
    std::array<char, PATH_MAX> folder;
    return getcwd(folder.data(), folder.size()) == nullptr ? path : std::string(folder.data()) + '/' + path;
}

bool strikes(std::string_view function, const char* path)
{
    Fault& one = fault();
    return one.count != nullptr && one.function == function && one.concerns(absolute(path)) && one.strikes();
}

bool strikes(std::string_view function, int descriptor)
{
    Fault& one = fault();
    return one.count != nullptr && one.function == function && one.concerns(descriptor) && one.strikes();
}

} // namespace

KXDCM_EXPORTED int open(const char* path, int flags, ...)
{
    std::va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    return strikes("open", path) ? -1 : next<int(const char*, int, ...)>("open")(path, flags, mode);
}

KXDCM_EXPORTED FILE* fopen(const char* path, const char* mode)
{
    return strikes("open", path) ? nullptr : next<decltype(fopen)>("fopen")(path, mode);
}

KXDCM_EXPORTED int rename(const char* from, const char* to) noexcept
{
    return strikes("rename", to) ? -1 : next<int(const char*, const char*)>("rename")(from, to);
}

KXDCM_EXPORTED int stat(const char* path, struct stat* status) noexcept
{
    return strikes("stat", path) ? -1 : next<int(const char*, struct stat*)>("stat")(path, status);
}

KXDCM_EXPORTED ssize_t getxattr(const char* path, const char* name, void* value, size_t size) noexcept
{
    using Function = ssize_t(const char*, const char*, void*, size_t);
    return strikes("getxattr", path) ? -1 : next<Function>("getxattr")(path, name, value, size);
}

KXDCM_EXPORTED void* mmap(void* address, size_t bytes, int protection, int flags, int file, off_t at) noexcept
{
    // Not those that set up this library and threads: what programs share among their processes.
    Fault& one = fault();
    const bool isShared = file < 0 && (flags & MAP_SHARED) != 0;
    if (isShared && one.count != nullptr && one.function == "mmap" && one.strikes()) return MAP_FAILED;
    return next<void*(void*, size_t, int, int, int, off_t)>("mmap")(address, bytes, protection, flags, file, at);
}

// Those whose first argument is a descriptor, all alike.
#define KXDCM_FAILING(result, name, parameters, arguments)                                 \
    KXDCM_EXPORTED result name parameters                                                  \
    {                                                                                      \
        return strikes(#name, descriptor) ? -1 : next<result parameters>(#name) arguments; \
    }

KXDCM_FAILING(ssize_t, read, (int descriptor, void* bytes, size_t count), (descriptor, bytes, count))
KXDCM_FAILING(ssize_t, pread, (int descriptor, void* bytes, size_t count, off_t at), (descriptor, bytes, count, at))
KXDCM_FAILING(ssize_t, write, (int descriptor, const void* bytes, size_t count), (descriptor, bytes, count))
KXDCM_FAILING(ssize_t, copy_file_range,
              (int descriptor, off_t* at, int target, off_t* to, size_t count, unsigned flags),
              (descriptor, at, target, to, count, flags))
KXDCM_FAILING(int, fsync, (int descriptor), (descriptor))
KXDCM_FAILING(int, fdatasync, (int descriptor), (descriptor))
KXDCM_FAILING(int, close, (int descriptor), (descriptor))
#undef KXDCM_FAILING
// These do not throw, which has to be said as the system's headers say it.
#define KXDCM_FAILING(result, name, parameters, arguments)                                 \
    KXDCM_EXPORTED result name parameters noexcept                                         \
    {                                                                                      \
        return strikes(#name, descriptor) ? -1 : next<result parameters>(#name) arguments; \
    }

KXDCM_FAILING(off_t, lseek, (int descriptor, off_t at, int from), (descriptor, at, from))
KXDCM_FAILING(int, fstat, (int descriptor, struct stat* status), (descriptor, status))
KXDCM_FAILING(int, syncfs, (int descriptor), (descriptor))
KXDCM_FAILING(int, fchmod, (int descriptor, mode_t mode), (descriptor, mode))
KXDCM_FAILING(int, fchown, (int descriptor, uid_t user, gid_t group), (descriptor, user, group))
KXDCM_FAILING(int, ftruncate, (int descriptor, off_t bytes), (descriptor, bytes))
#undef KXDCM_FAILING

KXDCM_EXPORTED ssize_t sendfile(int target, int descriptor, off_t* at, size_t count) noexcept
{
    using Function = ssize_t(int, int, off_t*, size_t);
    return strikes("sendfile", descriptor) ? -1 : next<Function>("sendfile")(target, descriptor, at, count);
}
