// SPDX-License-Identifier: BSD-3-Clause
// Files that are not DICOM images, as on a CD or in an export: texts, programs, and the DICOMDIR.
#pragma once

#include <filesystem>

namespace kxtool {

/// Looks at the beginning of a file.
/// @return whether it is no DICOM file, not even a damaged one, or a DICOMDIR. Not what is empty or begins with zeros alone,
///         as an image does that was copied badly; nor what cannot be read.
bool isForeignFile(const std::filesystem::path& file);

} // namespace kxtool
