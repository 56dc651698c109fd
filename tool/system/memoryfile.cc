// SPDX-License-Identifier: BSD-3-Clause
#include "tool/system/memoryfile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <tuple>

namespace kxtool {

std::string takeContent(int file)
{
    struct stat status = {};
    if (fstat(file, &status) != 0 || status.st_size == 0) return {};
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    const ssize_t count = pread(file, text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    std::ignore = ftruncate(file, 0);
    std::ignore = lseek(file, 0, SEEK_SET);
    if (!text.empty() && !text.ends_with('\n')) text += '\n';
    return text;
}

} // namespace kxtool
