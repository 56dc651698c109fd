// SPDX-License-Identifier: BSD-3-Clause
// Mapping texts and folders of any size, and applying them.
#pragma once

#include "kxmap.h"

#include <cstddef>
#include <filesystem>
#include <string>

namespace bench {

/// @return so many lines of typical rules, all good.
std::string makeRules(std::size_t count);

/// A folder in memory or on disk with so many mapping files "TITLE<number>.map" of one rule each; DICOM_VAR names it. It
/// goes with the object.
class MappingsFolder {
public:
    explicit MappingsFolder(std::size_t files);
    MappingsFolder(const MappingsFolder&) = delete;
    MappingsFolder& operator=(const MappingsFolder&) = delete;
    ~MappingsFolder();

private:
    std::filesystem::path root_;
};

/// Applies one mapping in a session of its own.
void apply(Mapping& mapping, DcmDataset& dataset);

} // namespace bench
