// SPDX-License-Identifier: BSD-3-Clause
// The options by which commands switch their warnings, the same everywhere.
#include "tool/console/switches.h"

#include "tool/console/output.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace kxtool {

void addSwitchOptions(CLI::App& command, std::vector<std::string>& switches, bool& listsWarnings, const char* help)
{
    command.add_option("-W", switches, help)->type_name("NAME")->expected(1)->allow_extra_args(false)->take_all();
    command.add_flag("--list-warnings", listsWarnings, "List everything that is looked for");
}

void printSwitch(const char* name, const char* kind, const char* sees)
{
    printLine(fmt::format("{:<22}{:<9}{}", name, kind, sees));
}

} // namespace kxtool
