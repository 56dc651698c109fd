// SPDX-License-Identifier: BSD-3-Clause
// The edits as a script: what an embedded general-purpose language costs for the same work.
#include "edits.h"

#include <lua.hpp>

#include <iterator>
#include <stdexcept>
#include <string>
#include <tuple>

namespace {

constexpr const char* kBegin = R"(
local crossSection = { CT = true, MR = true }
local names = { ["General Hospital"] = "GH", ["JFK IMAGING CENTER"] = "JFK" }
function edit(item)
)";

constexpr const char* kLines[bench::kEdits] = {
    R"(put(item, 0x0010, 0x0010, string.upper(get(item, 0x0010, 0x0010)))
)",
    R"(put(item, 0x0008, 0x1010, get(item, 0x0008, 0x1010) .. "-" .. get(item, 0x0008, 0x0060))
)",
    R"(put(item, 0x0008, 0x0080, names[get(item, 0x0008, 0x0080)] or "unknown")
)",
    R"(put(item, 0x0008, 0x1030, crossSection[get(item, 0x0008, 0x0060)] and "Cross-section" or "Other")
)",
    R"(remove(item, 0x0010, 0x1010)
)"};

std::string makeScript(std::size_t edits)
{
    std::string script(kBegin);
    for (std::size_t i = 0; i < edits; ++i) script += kLines[i % std::size(kLines)];
    return script + "end\n";
}

DcmItem& itemOf(lua_State* state)
{
    return *static_cast<DcmItem*>(lua_touserdata(state, 1));
}

DcmTagKey tagOf(lua_State* state)
{
    return {static_cast<Uint16>(lua_tointeger(state, 2)), static_cast<Uint16>(lua_tointeger(state, 3))};
}

int get(lua_State* state)
{
    const char* text = nullptr;
    std::ignore = itemOf(state).findAndGetString(tagOf(state), text);
    lua_pushstring(state, text == nullptr ? "" : text);
    return 1;
}

int put(lua_State* state)
{
    std::ignore = itemOf(state).putAndInsertString(tagOf(state), lua_tostring(state, 4));
    return 0;
}

int remove(lua_State* state)
{
    std::ignore = itemOf(state).findAndDeleteElement(tagOf(state));
    return 0;
}

} // namespace

void bench::LuaEdits::Closer::operator()(lua_State* state) const
{
    lua_close(state);
}

bench::LuaEdits::LuaEdits() : state_(luaL_newstate())
{
    luaL_openlibs(state_.get());
    lua_register(state_.get(), "get", get);
    lua_register(state_.get(), "put", put);
    lua_register(state_.get(), "remove", remove);
    if (luaL_dostring(state_.get(), makeScript(kEdits).c_str()) != LUA_OK)
        throw std::runtime_error(lua_tostring(state_.get(), -1));
}

void bench::LuaEdits::edit(DcmItem& item)
{
    lua_getglobal(state_.get(), "edit");
    lua_pushlightuserdata(state_.get(), &item);
    if (lua_pcall(state_.get(), 1, 0, 0) != LUA_OK) throw std::runtime_error(lua_tostring(state_.get(), -1));
}

void bench::LuaEdits::load(const std::string& script)
{
    if (luaL_loadstring(state_.get(), script.c_str()) != LUA_OK)
        throw std::runtime_error(lua_tostring(state_.get(), -1));
    lua_pop(state_.get(), 1);
}

std::string bench::LuaEdits::script(std::size_t edits)
{
    return makeScript(edits);
}
