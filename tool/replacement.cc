// SPDX-License-Identifier: BSD-3-Clause
// The temporary file, its way into the target's place, and what signals leave of it.
#include "tool/replacement.h"

#include "tool/output.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace kxtool {
namespace {

constexpr std::array kEndingSignals = {SIGINT, SIGTERM, SIGHUP};
constexpr unsigned kNameAttempts = 1000;

// The path that the signal handler removes; "" for none. Changed only while the signals are held back.
std::array<char, PATH_MAX> pendingPath;

extern "C" void removePendingAndEnd(int signalNumber)
{
    if (pendingPath[0] != '\0') unlink(pendingPath.data());
    std::ignore = raise(signalNumber); // the handler was reset on entry, so this ends the process as the signal does
}

void installHandlersOnce()
{
    static const bool isInstalled = [] {
        struct sigaction action = {};
        action.sa_handler = removePendingAndEnd;
        action.sa_flags = static_cast<int>(SA_RESETHAND | static_cast<unsigned>(SA_NODEFER));
        for (const int signalNumber : kEndingSignals) {
            struct sigaction before = {};
            sigaction(signalNumber, nullptr, &before);
            if (before.sa_handler != SIG_IGN) sigaction(signalNumber, &action, nullptr); // "nohup" stays in force
        }
        return true;
    }();
    std::ignore = isInstalled;
}

// Holds the ending signals back, so that a temporary file and its place in `pendingPath` change together.
class SignalsHeld {
public:
    SignalsHeld()
    {
        sigset_t held;
        sigemptyset(&held);
        for (const int signalNumber : kEndingSignals) sigaddset(&held, signalNumber);
        sigprocmask(SIG_BLOCK, &held, &before_);
    }
    ~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before_;
};

} // namespace

Replacement::Replacement(const std::filesystem::path& target) : target_(target)
{
    std::error_code failure;
    if (std::filesystem::is_symlink(target, failure)) {
        target_ = std::filesystem::canonical(target, failure);
        if (failure) throw FileError(target, failure.message());
    }
    struct stat status = {};
    if (stat(target_.c_str(), &status) == 0) {
        // A rename would put a plain file in the place of a device or a pipe, and of a file that is write-protected.
        if (!S_ISREG(status.st_mode)) throw FileError(target, "not a regular file");
        if (access(target_.c_str(), W_OK) != 0) throw FileError(target, systemReason(errno));
    }
    installHandlersOnce();
    createTemporary();
    adoptAttributes();
}

Replacement::~Replacement()
{
    if (descriptor_ >= 0) close(descriptor_);
    const SignalsHeld held;
    if (!temporary_.empty()) unlink(temporary_.c_str());
    pendingPath[0] = '\0';
}

void Replacement::createTemporary()
{
    static unsigned number = 0;
    const SignalsHeld held;
    for (unsigned attempt = 0; attempt < kNameAttempts; ++attempt) {
        const std::filesystem::path candidate =
            target_.parent_path() / fmt::format("{}{}-{}", kTemporaryPrefix, getpid(), number++);
        descriptor_ = open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (descriptor_ < 0 && errno == EEXIST) continue; // left by a killed run, or another machine's
        if (descriptor_ < 0) break;
        temporary_ = candidate;
        std::memcpy(pendingPath.data(), candidate.c_str(), candidate.native().size() + 1); // open() bounds its length
        return;
    }
    throw FileError(target_, systemReason(errno));
}

void Replacement::adoptAttributes()
{
    struct stat status = {};
    if (stat(target_.c_str(), &status) != 0) return;                 // a new file, as the process's umask has it
    std::ignore = fchown(descriptor_, status.st_uid, status.st_gid); // only root may; others own what they write
    std::ignore = fchmod(descriptor_, status.st_mode & 07777);       // last: fchown clears bits
}

std::FILE* Replacement::openStream()
{
    const int copy = fcntl(descriptor_, F_DUPFD_CLOEXEC, 0);
    if (copy < 0) throw FileError(target_, systemReason(errno));
    std::FILE* stream = fdopen(copy, "wb");
    if (stream != nullptr) return stream;
    const int reason = errno;
    close(copy);
    throw FileError(target_, systemReason(reason));
}

void Replacement::commit()
{
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (close(descriptor) != 0) throw FileError(target_, systemReason(errno)); // some file systems only tell here
    const SignalsHeld held;
    if (rename(temporary_.c_str(), target_.c_str()) != 0) throw FileError(target_, systemReason(errno));
    temporary_.clear();
    pendingPath[0] = '\0';
}

} // namespace kxtool
