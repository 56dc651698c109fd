// SPDX-License-Identifier: BSD-3-Clause
// Opening mapping files.
#include "kxmap/mappings/lines.h"

#include <sys/stat.h>

namespace {

kxmap::FileHandle openUnless(const std::string& path, bool (*refused)(mode_t))
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || refused(status.st_mode)) return nullptr;
    return kxmap::FileHandle(std::fopen(path.c_str(), "rt"));
}

} // namespace

kxmap::FileHandle kxmap::openFile(const std::string& path)
{
    return openUnless(path, [](mode_t mode) { return S_ISDIR(mode); });
}

kxmap::FileHandle kxmap::openRegularFile(const std::string& path)
{
    if (path.size() > kMaxPathBytes) return nullptr;
    return openUnless(path, [](mode_t mode) { return !S_ISREG(mode); });
}
