// What both forms of the module quen_io share: the table of entry points, the classes that Lua code
// sees, and the call of an entry point.
//
// Lua reports errors by longjmp, which runs no destructors. So whatever may raise an error of Lua
// runs below a lua_pcall, with objects that need no destructor; those that do are in the frame
// above.
#pragma once

#include <quen/io/entry_points.h>
#include <quen/io/runtime_parts.h>

#include <cstdlib>
#include <cstring>
#include <lua.hpp>
#include <new>
#include <string_view>
#include <tuple>

// What require calls; each form defines it.
extern "C" [[gnu::visibility("default")]] int luaopen_quen_io(lua_State* state);

namespace quen::lua {

inline constexpr const char* kClasses = R"lua(
local module = ...

-- A class, called to create an object. Its objects know the names of their classes as _is.
function module.class(name, parent, create)
  local new = {_is = setmetatable({[name] = true, ["quen.io." .. name] = true},
                                  {__index = parent and parent._is})}
  new.__index, new.__tostring = new, function(p) return name .. " " .. tostring(p._path) end
  return setmetatable(new, {__index = parent, __call = create or getmetatable(parent).__call})
end

module.Path = module.class("Path", nil, function(class, path, parentTraversal)
  return setmetatable({_path = path, _hasParentTraversal = parentTraversal or false}, class)
end)
for _, name in ipairs{"FolderPath", "FilePath"} do module[name] = module.class(name, module.Path) end
module.ByteArray = module.class("Byte[]", nil, function(class, bytes)  -- or their number
  return setmetatable({bytes = math.type(bytes) and string.rep("\0", bytes) or bytes}, class)
end)

local Exception = {__tostring = function(raised) return raised.class .. ": " .. raised.message end}
function module._exception(class, message)
  return setmetatable({class = class, message = message}, Exception)
end

module.help = {}  -- the text of each member by itself

function module._put(shortName, member, text)  -- "Path.get.exists": into module.Path.get
  local place = module
  for owner in string.gmatch(shortName, "(%w+)%.") do
    place[owner] = rawget(place, owner) or {}
    place = place[owner]
  end
  place[string.match(shortName, "[%w_]+$")], module.help[member] = member, shortName .. text
end
)lua";

// What the names of an entry point's parameters tell beyond their types.
struct Parameters {
  constexpr explicit Parameters(std::string_view list)
      : takesText(list.find("operand") != list.npos),
        fills(list.find("destination") != list.npos) {}

  bool takesText;  // a string is passed as a text, not as a String
  bool fills;      // the call fills a Byte[]
};

// A text argument; null for nil.
inline const char* textOf(lua_State* state, int index) {
  if (lua_isnil(state, index)) return nullptr;
  const char* text = luaL_checkstring(state, index);
  luaL_argcheck(state, std::strlen(text) == lua_rawlen(state, index), index, "embedded zero byte");
  return text;
}

inline std::string_view viewOf(lua_State* state, int index) {
  std::size_t size = 0;
  const char* bytes = lua_tolstring(state, index, &size);
  return {bytes, size};
}

inline void push(lua_State* state, std::string_view bytes) {
  lua_pushlstring(state, bytes.data(), bytes.size());
}

// Whether the value is an object of a class of that name, or of one below it.
inline bool isInstance(lua_State* state, int index, const char* name) {
  if (!lua_istable(state, index) || luaL_getmetafield(state, index, "_is") == LUA_TNIL)
    return false;
  const bool is = lua_getfield(state, -1, name) == LUA_TBOOLEAN;
  lua_pop(state, 2);
  return is;
}

// Pushes what a member of this module, a class or a function, creates from a text and a value.
template <class PushValue>
void pushNew(lua_State* state, const char* member, std::string_view text, PushValue pushValue) {
  lua_getfield(state, LUA_REGISTRYINDEX, "quen_io");
  lua_getfield(state, -1, member);
  push(state, text);
  pushValue();
  lua_call(state, 2, 1);
}

inline void pushNewPath(lua_State* state, std::string_view text, bool isFolder, bool traversal) {
  pushNew(state, isFolder ? "FolderPath" : "Path", text,
          [&] { lua_pushboolean(state, traversal); });
}

inline void raise(lua_State* state, const parts::Exception& raised) {
  pushNew(state, "_exception", raised.className, [&] { push(state, raised.message); });
  lua_error(state);
}

template <class Argument, class Conversion>
Argument take(lua_State* state, int index, Conversion& conversion) {
  if constexpr (std::is_same_v<Argument, const char*>)
    return textOf(state, index);
  else if constexpr (std::is_same_v<Argument, void*>)
    return conversion.takeObject(state, index);
  else
    return static_cast<Argument>(lua_isboolean(state, index) ? lua_toboolean(state, index)
                                                             : luaL_checkinteger(state, index));
}

// One call. `Conversion` converts object arguments, and the result after the entry point has
// returned.
template <class Conversion, class Result, class... Arguments>
struct Call {
  Conversion conversion;
  Result (*entry)(Arguments...);

  static int run(lua_State* state) {
    auto& [conversion, entry] = *static_cast<Call*>(lua_touserdata(state, 1));
    lua_remove(state, 1);
    constexpr int kCount = sizeof...(Arguments);
    if (lua_gettop(state) != kCount) return luaL_error(state, "%d arguments expected", kCount);
    int index = 0;
    try {
      const std::tuple<Arguments...> native{take<Arguments>(state, ++index, conversion)...};
      if constexpr (std::is_void_v<Result>) {
        std::apply(entry, native);
        conversion.finish(state);
      } else {
        const Result result = std::apply(entry, native);
        conversion.finish(state);
        conversion.give(state, result);
      }
      return std::is_void_v<Result> ? 0 : 1;
    } catch (const std::exception&) {  // std::bad_alloc
      parts::takeException();          // may have been raised before
    }
    return luaL_error(state, "not enough memory");
  }
};

template <class Conversion, class Result, class... Arguments>
int callEntry(lua_State* state, Result (*entry)(Arguments...), Parameters parameters) {
  int status = LUA_OK;
  bool outOfMemory = false;
  try {
    Call<Conversion, Result, Arguments...> call{Conversion(state, parameters), entry};
    lua_pushcfunction(state, call.run);
    lua_insert(state, 1);
    lua_pushlightuserdata(state, &call);
    lua_insert(state, 2);
    status = lua_pcall(state, lua_gettop(state) - 1, 1, 0);
  } catch (const std::bad_alloc&) {  // of the conversion, which may not pass through Lua
    outOfMemory = true;
  }
  if (outOfMemory) return luaL_error(state, "not enough memory");
  return status == LUA_OK ? 1 : lua_error(state);
}

template <class Conversion>
constexpr lua_CFunction kFunctions[] = {
#define QUEN_IO_ENTRY(name, result, ...) \
  [](lua_State* state) { return callEntry<Conversion>(state, &name, Parameters(#__VA_ARGS__)); },
#include <quen/io/entry_list.h>
#undef QUEN_IO_ENTRY
};

// The short name, and what follows it in the text for help().
inline constexpr std::pair<const char*, const char*> kHelp[] = {
#define QUEN_IO_ENTRY_HELP(name, shortName, parameters, description) \
  {shortName, "(" parameters ")\n" description},
#include <quen/io/entry_help.h>
#undef QUEN_IO_ENTRY_HELP
};

template <class Conversion>
int makeModule(lua_State* state) {
  lua_newtable(state);
  if (luaL_loadstring(state, kClasses) != LUA_OK) return lua_error(state);
  lua_pushvalue(state, -2);
  lua_call(state, 1, 0);
  for (std::size_t i = 0; i < std::size(kHelp); ++i) {
    lua_getfield(state, -1, "_put");
    lua_pushstring(state, kHelp[i].first);
    lua_pushcfunction(state, kFunctions<Conversion>[i]);
    lua_pushstring(state, kHelp[i].second);
    lua_call(state, 3, 0);
  }
  lua_pushvalue(state, -1);
  lua_setfield(state, LUA_REGISTRYINDEX, "quen_io");
  return 1;
}

}  // namespace quen::lua
