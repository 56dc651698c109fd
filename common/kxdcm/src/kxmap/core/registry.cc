// SPDX-License-Identifier: BSD-3-Clause
// Look-up of built-in functions by name, and the rules on how many arguments a call may have.
#include "kxmap/core/registry.h"

#include <cstring>

const FunctionDef* kxmap::findFunction(const char* name)
{
    for (const FunctionDef* const* entry = funcList; *entry != nullptr; ++entry) {
        if (*(*entry)->name == *name && std::strcmp((*entry)->name, name) == 0) return *entry;
    }
    return nullptr;
}

bool c0_numParamsOK(int count)
{
    return count == 0;
}

bool c1_numParamsOK(int count)
{
    return count == 1;
}

bool c2_numParamsOK(int count)
{
    return count == 2;
}

bool c3_numParamsOK(int count)
{
    return count == 3;
}

bool c4_numParamsOK(int count) // no built-in has four arguments; servers may use the rule
{
    return count == 4;
}

bool c2p_numParamsOK(int count)
{
    return count > 1;
}

bool c3xplus2_numParamsOK(int count)
{
    return count == 3 * (count / 3) + 2;
}

bool c2x_numParamsOK(int count)
{
    return count > 1 && count % 2 == 0;
}

bool substr_numParamsOK(int count)
{
    return count == 2 || count == 3;
}

bool rnd_numParamsOK(int count)
{
    return count == 1 || count == 2;
}

bool codestring_numParamsOK(int count)
{
    return count == 1 || count == 2;
}

bool empty_numParamsOK(int count)
{
    return count == 1 || count == 2;
}

bool root_numParamsOK(int count)
{
    return count == 1 || count == 3;
}
