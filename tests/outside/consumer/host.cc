// SPDX-License-Identifier: BSD-3-Clause
// A host whose global names are those of the library that its plug-in holds, and visible to it (-rdynamic). They are
// its own: the plug-in must neither write nor call them.
#include <cstdio>
#include <dlfcn.h>
#include <string>

int logger = 7;
int errorlogs = 8;
int gseed = 9;
int calls = 0;

void error(std::string /*text*/)
{
    ++calls;
}

char* newdup(const char* /*text*/)
{
    ++calls;
    return nullptr;
}

int main(int argc, char** argv)
{
    void* plugin = dlopen(argc == 2 ? argv[1] : "plugin.so", RTLD_NOW | RTLD_LOCAL);
    if (plugin == nullptr) {
        std::fprintf(stderr, "host: %s\n", dlerror());
        return 1;
    }
    const auto coerce = reinterpret_cast<int (*)()>(dlsym(plugin, "coerce"));
    const int status = coerce == nullptr ? -1 : coerce();
    std::printf("host: coerce() says %d, logger %d, errorlogs %d, gseed %d, calls %d\n", status, logger, errorlogs,
                gseed, calls);
    return 0;
}
