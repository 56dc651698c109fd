// SPDX-License-Identifier: BSD-3-Clause
// A dataset with one element of each kind that matters. Apart from fixture.h, since fuzz targets know no test framework.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdatset.h>

#include <memory>

namespace kxtest {

/// One study of a person, see the definition for its elements.
std::unique_ptr<DcmDataset> sampleDataset();

} // namespace kxtest
