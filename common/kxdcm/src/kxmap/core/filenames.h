// SPDX-License-Identifier: BSD-3-Clause
// How mapping files are named: what the name of an entry of the mappings directory means, and what the file of an AE
// title is called. Private to this project; its tool may include it.
#pragma once

#include "kxmap/core/limits.h" // how long names and paths may be

#include <string>
#include <string_view>

namespace kxmap {

/// Which datasets a mapping is for: those received from an AE title, or those sent to it.
enum class Direction { Inbound, Outbound };

/// The two directories that hold mapping files: "mappings", and "global" in it.
enum class Place { Mappings, Global };

constexpr const char* kGlobalDirectory = "global";

/// What a file of some name is to a MappingSet. Says nothing of what lies on the disk: only regular files are read.
struct FileMeaning {
    enum class Role { Unread, Pre, Title, Post };

    Role role = Role::Unread;
    Direction direction = Direction::Inbound;
    std::string_view title;          ///< of Title: the AE title that the file is for, which may be empty
    std::string_view inboundTitle;   ///< of Title: the one that it serves inbound; "X.out" for "X.out.map"
    const char* whyUnread = nullptr; ///< of Unread: for people: "its name ..."
};

/// @param name of an entry; the meaning's titles are parts of it.
FileMeaning meaningOf(Place place, std::string_view name);

/// @return "X.map" or "X.out.map" for the AE title X.
std::string titleFile(Direction direction, std::string_view aeTitle);

/// @param name "pre" or "post"; any other name gives a file that is not read.
/// @return "global/pre.map", or "global/outpre.map" for the outbound side.
std::string globalFile(Direction direction, std::string_view name);

/// Says whether a title can be a part of a file's name. One with "/" would be a path, and has no file.
bool canNameFile(std::string_view aeTitle);

} // namespace kxmap
