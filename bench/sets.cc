// SPDX-License-Identifier: BSD-3-Clause
// The making of mapping texts and folders.
#include "sets.h"

#include "edits.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace fs = std::filesystem;

std::string bench::makeRules(std::size_t count)
{
    const std::string rules(kRules);
    std::string text;
    for (std::size_t i = 0; i < count / kEdits; ++i) text += rules;
    std::size_t end = 0;
    for (std::size_t i = 0; i < count % kEdits; ++i) end = rules.find('\n', end) + 1;
    return text + rules.substr(0, end);
}

bench::MappingsFolder::MappingsFolder(std::size_t files)
{
    std::string name = (fs::temp_directory_path() / "kxdcm-bench-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder: " + name);
    root_ = name;
    const fs::path mappings = root_ / "mappings";
    fs::create_directory(mappings);
    for (std::size_t i = 0; i < files; ++i)
        std::ofstream(mappings / ("TITLE" + std::to_string(i) + ".map")) << "$(title)=\"" << i << "\"\n";
    ::setenv("DICOM_VAR", root_.c_str(), 1);
}

bench::MappingsFolder::~MappingsFolder()
{
    std::error_code ignored; // what cannot be removed stays in the folder for temporary files
    fs::remove_all(root_, ignored);
}

void bench::apply(Mapping& mapping, DcmDataset& dataset)
{
    MappingSession session;
    session.dataset = &dataset;
    mapping.apply(session);
}
