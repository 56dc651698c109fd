// SPDX-License-Identifier: BSD-3-Clause
// Mapping files are opened by the tool, once each; what was read is given to the library.
#include "tool/rules/rules.h"

#include "tool/console/output.h"
#include "tool/rules/mappingsfolder.h"

#include <cerrno>
#include <cstdio>
#include <tuple>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

using Stream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

} // namespace

std::vector<fs::path> filesOf(const RuleChoice& choice)
{
    if (!choice.singleFile.empty()) {
        std::error_code failure;
        const fs::file_status status = fs::status(choice.singleFile, failure);
        if (fs::exists(status) && !fs::is_regular_file(status))
            throw FileError(choice.singleFile, "not a regular file"); // a pipe would wait for somebody to write
        return {choice.singleFile};
    }
    const fs::path folder = findMappingsFolder(choice.mappingsFolder);
    std::vector<fs::path> files;
    for (const MappingSlot& slot :
         slotsFor(folder, choice.isOutbound ? Direction::Outbound : Direction::Inbound, choice.aeTitle)) {
        if (slot.isThere) files.push_back(folder / slot.name);
    }
    return files;
}

// The library reads a text in memory in other pieces than a file: long lines whole, and nothing after a NUL byte.
std::unique_ptr<Mapping> mappingOf(std::string_view bytes, const char* title)
{
    if (bytes.empty()) return std::make_unique<Mapping>("", title);
    // Opened for reading, the memory is only read.
    const Stream stream(fmemopen(const_cast<char*>(bytes.data()), bytes.size(), "r"), &std::fclose);
    if (!stream) throw FileError(title, systemReason(errno));
    return std::make_unique<Mapping>(stream.get(), title);
}

Rules::Rules(const std::vector<RuleFile>& files)
{
    for (const RuleFile& file : files) mappings_.push_back(mappingOf(file.bytes, file.path.stem().c_str()));
}

void Rules::apply(MappingSession& session) const
{
    for (const auto& mapping : mappings_) std::ignore = mapping->apply(session); // always 0
}

} // namespace kxtool
