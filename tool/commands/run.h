// SPDX-License-Identifier: BSD-3-Clause
// kxmap as a call: a program and the tests share it.
#pragma once

#include <span>

namespace kxtool {

/// Does what a command line asks for. Standard streams, the current folder and the environment are the process's; what is
/// changed for all later calls is how much is said (setVerbosity()), and that ending signals remove temporary files first.
/// @param arguments the program's name and what follows it.
/// @return the exit code. Throws nothing; does not return when an ending signal arrives.
int runKxmap(std::span<const char* const> arguments);

} // namespace kxtool
