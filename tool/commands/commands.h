// SPDX-License-Identifier: BSD-3-Clause
// The commands of kxmap, a source file each. A command adds its options to the command line and, when it was chosen,
// leaves its exit code.
#pragma once

namespace CLI {
class App;
}

namespace kxtool {

/// @param app the whole command line. @param exitCode set when the command has run; outlives `app`.
using CommandAdder = void(CLI::App& app, int& exitCode);

CommandAdder addApply, addCheck, addTry, addEval, addShell, addFunctions, addList, addConformance;

} // namespace kxtool
