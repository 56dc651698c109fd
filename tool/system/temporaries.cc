// SPDX-License-Identifier: BSD-3-Clause
#include "tool/system/temporaries.h"

#include "tool/console/output.h"
#include "tool/system/signals.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <random>
#include <regex>
#include <tuple>
#include <utility>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

// Part of the names, since a process of another machine may have the same number. Drawn before any process is forked.
const std::uint32_t kRunToken = std::random_device()();

fs::path temporaryName(const fs::path& target, pid_t process, std::size_t slot)
{
    return target.parent_path() / fmt::format("{}{}-{:08x}-{}", kTemporaryPrefix, process, kRunToken, slot);
}

bool isTemporaryName(const std::string& name)
{
    static const std::regex form(R"(\.kxmap-[0-9]+-[0-9a-f]{8}-[0-9]+)");
    return name.starts_with(kTemporaryPrefix) && std::regex_match(name, form);
}

// The files that the signal handler removes; null for none. Changed only while the signals are blocked.
std::array<const char*, kMaxTemporaries> pendingPaths;

extern "C" void removePendingAndEnd(int signalNumber)
{
    for (const char* path : pendingPaths) {
        if (path != nullptr) unlink(path);
    }
    keepNoCore();
    std::ignore = raise(signalNumber); // the handler was reset on entry, so this ends the process as the signal does
}

void installHandlersOnce()
{
    static const bool isInstalled = [] {
        struct sigaction action = {};
        action.sa_handler = removePendingAndEnd;
        action.sa_mask = handledSignals(); // a second signal waits until the files are removed
        action.sa_flags = static_cast<int>(SA_RESETHAND | static_cast<unsigned>(SA_NODEFER));
        for (const int signalNumber : kEndingSignals) {
            if (sigismember(&action.sa_mask, signalNumber) == 1) sigaction(signalNumber, &action, nullptr);
        }
        return true;
    }();
    std::ignore = isInstalled;
}

/// Locks a file that no process has locked. @return the open file; none when a process has. Where locks hold on one
/// machine only, files of other machines look as if they were not locked.
Descriptor holdLeftover(const fs::path& file)
{
    Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    struct stat opened = {};
    struct stat named = {};
    const bool isHeld = descriptor.isOpen() && flock(descriptor.get(), LOCK_EX | LOCK_NB) == 0 &&
                        fstat(descriptor.get(), &opened) == 0 && lstat(file.c_str(), &named) == 0 &&
                        opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
    return isHeld ? std::move(descriptor) : Descriptor();
}

} // namespace

Temporary::Temporary(const std::filesystem::path& target)
{
    installHandlersOnce();
    const SignalsHeld held;
    const auto slot = std::ranges::find(pendingPaths, nullptr);
    if (slot == pendingPaths.end()) throw FileError(target, "too many files under way"); // a fault in the caller
    slot_ = static_cast<std::size_t>(slot - pendingPaths.begin());
    path_ = temporaryName(target, getpid(), slot_);
    if (!openLocked() && !openLocked()) throw FileError(target, systemReason(errno));
    *slot = path_.c_str();
}

// Between opening and locking, another run with --clean may have removed it.
bool Temporary::openLocked()
{
    descriptor_ = Descriptor(open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)); // patients' data
    if (!descriptor_.isOpen()) return false;
    std::ignore = flock(descriptor_.get(), LOCK_EX); // some file systems have no locks
    struct stat status = {};
    return fstat(descriptor_.get(), &status) != 0 || status.st_nlink > 0;
}

Temporary::~Temporary()
{
    if (path_.empty()) return;
    const SignalsHeld held;
    unlink(path_.c_str());
    pendingPaths[slot_] = nullptr;
}

int Temporary::renameTo(const std::filesystem::path& target)
{
    const SignalsHeld held;
    if (rename(path_.c_str(), target.c_str()) != 0) return errno;
    pendingPaths[slot_] = nullptr;
    path_.clear();
    return 0;
}

void removeTemporariesOf(pid_t process, const std::set<std::filesystem::path>& targets)
{
    std::set<fs::path> folders;
    for (const fs::path& target : targets) {
        std::error_code failure;
        const fs::path resolved = fs::canonical(target, failure); // of a link
        folders.insert((failure ? target : resolved).parent_path());
    }
    for (const fs::path& folder : folders) {
        for (std::size_t slot = 0; slot < kMaxTemporaries; ++slot)
            unlink(temporaryName(folder / "", process, slot).c_str());
    }
}

std::vector<std::filesystem::path> leftoversIn(const std::filesystem::path& folder)
{
    std::vector<fs::path> left;
    std::error_code failure;
    for (fs::directory_iterator at(folder.empty() ? "." : folder, failure), end; !failure && at != end;
         at.increment(failure)) {
        const fs::path file = folder / at->path().filename();
        if (isTemporaryName(file.filename()) && fs::is_regular_file(at->symlink_status(failure)) &&
            holdLeftover(file).isOpen())
            left.push_back(file);
    }
    std::ranges::sort(left);
    return left;
}

int removeLeftover(const std::filesystem::path& file)
{
    const Descriptor held = holdLeftover(file);
    return held.isOpen() && unlink(file.c_str()) != 0 ? errno : 0;
}

} // namespace kxtool
