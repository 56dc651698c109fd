// SPDX-License-Identifier: BSD-3-Clause
// What the edits are made on.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <cstddef>
#include <memory>

namespace bench {

/// @return a CT header of that many elements: twenty-odd of patient, study and series in front, as every image has them,
///         and what its maker put behind.
std::unique_ptr<DcmDataset> makeDataset(std::size_t elements);

/// @return the dataset of a real CT image with its pixel data.
/// @throws std::runtime_error when the file cannot be read.
std::unique_ptr<DcmDataset> loadCtImage();

} // namespace bench
