// SPDX-License-Identifier: BSD-3-Clause
// Every mapping of one direction, found below the directory that DICOM_VAR names.
#include "kxmap.h"

#include "kxmap/mappings/lines.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <string_view>
#include <tuple>
#include <unordered_map>

namespace {

constexpr std::string_view kSuffix = ".map";

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

} // namespace

/// Finds titles without comparing all of them. It holds for the list that was loaded: one of another length, or with
/// other titles at its ends, is searched from the front.
struct MappingSet::Index {
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view title) const { return std::hash<std::string_view>()(title); }
    };

    bool holdsFor(const std::list<Mapping*>& list) const
    {
        return list.size() == listed && (listed == 0 || (first == list.front()->name && last == list.back()->name));
    }

    void add(const std::list<Mapping*>& list)
    {
        places.emplace(list.back()->name, std::prev(list.end())); // the first of a title stays
        first = list.front()->name;
        last = list.back()->name;
        listed = list.size();
    }

    std::unordered_map<std::string, std::list<Mapping*>::const_iterator, Hash, std::equal_to<>> places;
    std::string first;
    std::string last;
    std::size_t listed = 0;
};

MappingSet::MappingSet(std::unique_ptr<Index> index) : pre(nullptr), post(nullptr), index_(std::move(index)) {}

// Both readers run on an object that already counts as made, so that an exception on the way destroys what they hold.
MappingSet::MappingSet() : MappingSet(std::make_unique<Index>())
{
    const std::string directory = mappingsDirectory();
    const kxmap::DirHandle listing(::opendir(directory.c_str()));
    if (!listing) return;
    pre = readMapping(directory + "/global/pre.map", "pre").release();
    while (const dirent* entry = ::readdir(listing.get())) {
        const std::string_view file = entry->d_name;
        OFLOG_DEBUG(logger, "Scanning " << entry->d_name);
        if (!file.ends_with(kSuffix)) continue; // outbound files do: they serve the AE title "<title>.out"
        OFLOG_DEBUG(logger, "Reading " << entry->d_name << " map file");
        const std::string name(file.substr(0, file.size() - kSuffix.size()));
        load(directory + '/' + entry->d_name, name.c_str());
    }
    post = readMapping(directory + "/global/post.map", "post").release();
}

MappingSet::MappingSet(bool outbound, const char* aeTitle, bool globals) : MappingSet(std::make_unique<Index>())
{
    const std::string directory = mappingsDirectory() + '/';
    if (globals) {
        std::string path;
        pre = readGlobal(directory, "pre", outbound, path);
        post = readGlobal(directory, "post", outbound, path);
    }
    // Deliberate: the outbound file, whatever the flag says. A title comes from a peer: it names no file elsewhere.
    if (aeTitle != nullptr && std::strchr(aeTitle, '/') == nullptr) load(directory + aeTitle + ".out.map", aeTitle);
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
    index_->add(mappings);
}

Mapping* MappingSet::find(const char* aeTitle) const
{
    const auto isWanted = [aeTitle](const Mapping* mapping) { return std::strcmp(mapping->name, aeTitle) == 0; };
    if (index_->holdsFor(mappings)) {
        const auto place = index_->places.find(std::string_view(aeTitle));
        if (place == index_->places.end()) return nullptr;
        if (isWanted(*place->second)) return *place->second;
    }
    const auto found = std::ranges::find_if(mappings, isWanted);
    return found == mappings.end() ? nullptr : *found;
}

Mapping* MappingSet::readGlobal(const std::string& directory, const std::string& name, bool outbound, std::string& path)
{
    path = directory + "global/" + (outbound ? "out" : "") + name + ".map";
    return readMapping(path, name.c_str()).release();
}

int MappingSet::apply(const char* aeTitle, MappingSession& session)
{
    OFLOG_DEBUG(logger, "Search for mapping for AEtitle " << aeTitle);
    Mapping* mapping = find(aeTitle);
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
