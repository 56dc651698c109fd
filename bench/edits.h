// SPDX-License-Identifier: BSD-3-Clause
// Five typical edits (a change of case, a joined text, a recoding, a condition, a removal), as rules and in the ways that
// a server's author would write them otherwise. All leave the same dataset behind.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <cstddef>
#include <memory>
#include <string>

struct lua_State;

namespace bench {

constexpr int kEdits = 5;

/// The edits in the language of mapping files.
extern const char* const kRules;

/// The same by `findAndGetString`, `putAndInsertString` and `findAndDeleteElement`: what a careful author writes first.
void editDirectly(DcmItem& item);

/// The same by one search for each element concerned and `putString` or `remove` on what it found: the limit.
void editInPlace(DcmItem& item);

/// The elements that the edits write to.
struct Targets {
    DcmElement* name;
    DcmElement* station;
    DcmElement* institution;
    DcmElement* description;
    DcmElement* age;
};
Targets findTargets(DcmItem& item);

/// Nothing but DCMTK's part of the rules: texts that are known beforehand are put, and one element is removed.
void putAlone(DcmItem& item, const Targets& targets);

/// Takes all edits back.
void restore(DcmItem& item, DcmItem& original);

/// The same as a function in Lua 5.4, bound to `findAndGetString`, `putAndInsertString` and `findAndDeleteElement`.
class LuaEdits {
public:
    LuaEdits();

    void edit(DcmItem& item);

    /// @return a script of so many edits like the five.
    static std::string script(std::size_t edits);

    /// Compiles a script, and leaves what came of it to the collector.
    void load(const std::string& script);

private:
    struct Closer {
        void operator()(lua_State* state) const;
    };
    std::unique_ptr<lua_State, Closer> state_;
};

} // namespace bench
