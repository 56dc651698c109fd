// SPDX-License-Identifier: BSD-3-Clause
// kxmap's process. The locale stays "C", as in a server that does not ask for another.
#include "tool/commands/run.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <tuple>
#include <unistd.h>

namespace {

// Where one of them was closed, a file opened later would get its number, and what is printed.
void reserveStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) // to be used the wrong way, so that it fails as if closed
            std::ignore = open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace

int main(int argc, char** argv)
{
    reserveStandardDescriptors();
    std::signal(SIGXFSZ, SIG_IGN); // a file over the size limit is then a write error with a reason
    const int exitCode = kxtool::runKxmap({argv, static_cast<std::size_t>(argc)});
#ifdef NDEBUG
    // DCMTK takes its dictionary down entry by entry, which takes a third of a short run; leak checkers, which look when
    // that is done, find it in builds for debugging.
    std::fflush(nullptr);
    std::_Exit(exitCode);
#else
    return exitCode;
#endif
}
