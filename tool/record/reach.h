// SPDX-License-Identifier: BSD-3-Clause
// How far into a file rules reach.
#pragma once

#include "tool/dicom/dicomfile.h"
#include "tool/record/recorder.h"

namespace kxtool {

/// @return Extent::Header only where each tag that the rules read or write is spelled out and lies before the pixel
///         data's group: nothing that they do can then depend on what follows, nor change it.
DicomFile::Extent extentOf(const RulesInOrder& rules);

} // namespace kxtool
