// SPDX-License-Identifier: BSD-3-Clause
// A folder of files and rules for "kxmap apply", for the tests of what it does and of how it does it.
#pragma once

#include "support/fixture.h"
#include "tool/run.h"

#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>

namespace kxtest {

inline const std::string kTestFiles = KXDCM_PYDICOM_DATA "/test_files/";

// A folder with a mapping file, a set, and whatever files a test copies into it.
class ToolApply : public testing::Test {
protected:
    void SetUp() override
    {
        dir.write("name.map", "(0010,0010)=\"changed\"\n");
        dir.write("none.map", "");
        copy("CT_small.dcm", "ct.dcm");
    }

    void copy(const std::string& from, const std::string& to) const
    {
        std::filesystem::create_directories((dir.path() / to).parent_path());
        std::filesystem::copy_file(kTestFiles + from, dir.path() / to);
    }

    std::string value(const std::string& file, DcmTagKey key) const
    {
        DcmFileFormat format;
        if (format.loadFile((dir.path() / file).c_str()).bad()) return "unreadable";
        DcmItem& item = key.getGroup() == 2 ? static_cast<DcmItem&>(*format.getMetaInfo()) : *format.getDataset();
        return textOf(item, key);
    }

    ToolRun run(const std::string& arguments, const Setting& setting = {}) const
    {
        return checked(arguments, runTool(dir.path(), arguments, setting));
    }

    ToolRun run(const std::string& arguments, const std::string& prelude) const
    {
        return checked(arguments, runTool(dir.path(), arguments, prelude));
    }

    const TempDir dir;

private:
    ToolRun checked(const std::string& arguments, ToolRun result) const
    {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path()))
            EXPECT_FALSE(entry.path().filename().native().starts_with(".kxmap-"))
                << entry.path() << " after " << arguments;
        return result;
    }
};

} // namespace kxtest
