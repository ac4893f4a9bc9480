// The libraries that scripts may use, without what could reach the system, load machine code, or
// work for long where nothing can stop it.
#pragma once

struct lua_State;

namespace nox::agent {

/// Called by Lua, in a state that belongs to a LuaMachine: fills its globals.
int openSandbox(lua_State* state);

}  // namespace nox::agent
