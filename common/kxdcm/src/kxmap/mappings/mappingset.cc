// SPDX-License-Identifier: BSD-3-Clause
// Every mapping of one direction, found below the directory that DICOM_VAR names.
#include "kxmap.h"

#include "kxmap/core/filenames.h"
#include "kxmap/mappings/lines.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <tuple>

namespace {

using kxmap::Direction;

/// @return the value of DICOM_VAR, empty when it is not set, and "/mappings".
std::string mappingsDirectory()
{
    const char* root = std::getenv("DICOM_VAR");
    return std::string(root == nullptr ? "" : root) + "/mappings";
}

/// @return the mapping in a file; null when it cannot be opened.
std::unique_ptr<Mapping> readMapping(const std::string& path, const char* name)
{
    const kxmap::FileHandle file = kxmap::openRegularFile(path);
    return file ? std::make_unique<Mapping>(file.get(), name) : nullptr;
}

/// Compares from the end, terminator included, since titles of one site mostly begin alike.
/// @param size of `name`, less than that of the array Mapping::name, which may be read as a whole.
bool isNamed(const Mapping& mapping, const char* name, std::size_t size)
{
    std::size_t left = size + 1;
    while (left > 0 && mapping.name[left - 1] == name[left - 1]) --left;
    return left == 0;
}

/// @return the first mapping of that name; null for none. Reads the list and the names as they are now, and remembers
///         nothing from one call to the next, since a server may edit both.
Mapping* findNamed(const std::list<Mapping*>& mappings, const char* name)
{
    const std::size_t size = std::strlen(name);
    if (size >= sizeof Mapping::name) return nullptr;
    for (Mapping* mapping : mappings)
        if (isNamed(*mapping, name, size)) return mapping;
    return nullptr;
}

} // namespace

MappingSet::MappingSet(std::nullptr_t /*empty*/) : pre(nullptr), post(nullptr) {}

// The two constructors below delegate to the one above: so an exception in their bodies runs the destructor.
MappingSet::MappingSet() : MappingSet(nullptr)
{
    const std::string directory = mappingsDirectory();
    const kxmap::DirHandle listing(::opendir(directory.c_str()));
    if (!listing) return;
    std::string path;
    pre = readGlobal(directory + '/', "pre", false, path);
    while (const dirent* entry = ::readdir(listing.get())) {
        OFLOG_DEBUG(logger, "Scanning " << entry->d_name);
        const kxmap::FileMeaning meaning = kxmap::meaningOf(kxmap::Place::Mappings, entry->d_name);
        if (meaning.role != kxmap::FileMeaning::Role::Title) continue; // outbound files are: of the title "X.out"
        OFLOG_DEBUG(logger, "Reading " << entry->d_name << " map file");
        load(directory + '/' + entry->d_name, std::string(meaning.inboundTitle).c_str());
    }
    post = readGlobal(directory + '/', "post", false, path);
}

MappingSet::MappingSet(bool outbound, const char* aeTitle, bool globals) : MappingSet(nullptr)
{
    const std::string directory = mappingsDirectory() + '/';
    if (globals) {
        std::string path;
        pre = readGlobal(directory, "pre", outbound, path);
        post = readGlobal(directory, "post", outbound, path);
    }
    // Deliberate: the outbound file, whatever the flag says. A title comes from the remote system: it must
    // not name a file of another directory.
    if (aeTitle != nullptr && kxmap::canNameFile(aeTitle))
        load(directory + kxmap::titleFile(Direction::Outbound, aeTitle), aeTitle);
}

MappingSet::~MappingSet()
{
    for (Mapping* mapping : mappings) delete mapping;
    delete pre;
    delete post;
}

void MappingSet::load(const std::string& path, const char* name)
{
    std::unique_ptr<Mapping> mapping = readMapping(path, name);
    if (!mapping) return;
    mappings.push_back(mapping.get());
    std::ignore = mapping.release(); // the list owns it now
}

Mapping* MappingSet::readGlobal(const std::string& directory, const std::string& name, bool outbound, std::string& path)
{
    path = directory + kxmap::globalFile(outbound ? Direction::Outbound : Direction::Inbound, name);
    return readMapping(path, name.c_str()).release();
}

int MappingSet::apply(const char* aeTitle, MappingSession& session)
{
    OFLOG_DEBUG(logger, "Search for mapping for AEtitle " << aeTitle);
    Mapping* mapping = findNamed(mappings, aeTitle);
    if (mapping == nullptr) return 0;
    OFLOG_DEBUG(logger, "Found mapping for AEtitle " << aeTitle);
    const int result = mapping->apply(session);
    OFLOG_DEBUG(logger, "Done applying mapping for AEtitle " << aeTitle);
    return result;
}

int MappingSet::applyGlobal(GlobalMappingRule rule, MappingSession& session)
{
    if (rule != GlobalPre && rule != GlobalPost) return 0;
    Mapping* mapping = rule == GlobalPre ? pre : post;
    const char* title = rule == GlobalPre ? "Pre" : "Post";
    if (mapping == nullptr) {
        OFLOG_DEBUG(logger, "No global '" << title << "' mapping to apply");
        return 0;
    }
    OFLOG_DEBUG(logger, "Apply global '" << title << "' mapping");
    const int result = mapping->apply(session);
    OFLOG_DEBUG(logger, title << " mapping is done");
    return result;
}
