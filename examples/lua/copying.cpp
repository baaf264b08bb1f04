// The module quen_io for Lua over the copying layer: arguments are copied into the small runtime,
// which supplies all operations, and results are copied out. No operation touches an object of Lua,
// so no error of Lua can pass through the module.

#include <quen/small/host.h>

#include <array>

#include "binding.h"

namespace {

using namespace quen::lua;
namespace small = quen::small;

// For tests: a collection before and after each conversion.
const bool gCollect = std::getenv("QUEN_IO_COLLECT") != nullptr;

class Conversion {
 public:
  Conversion(lua_State*, Parameters parameters) : parameters_(parameters) {}

  void* takeObject(lua_State* state, int index) {
    if (gCollect) lua_gc(state, LUA_GCCOLLECT);
    if (lua_isnil(state, index)) return nullptr;
    if (parameters_.takesText && lua_type(state, index) == LUA_TSTRING)
      return const_cast<char*>(textOf(state, index));
    void* native = copyIn(state, index);
    passed_[passedCount_++] = {index, native, Quen_filePathFromObject(native)};
    return native;
  }

  // Raises in Lua what the call raised; copies the path of a receiver that was renamed.
  void finish(lua_State* state) {
    if ((raised_ = small::takeException())) raise(state, *raised_);
    if (gCollect) lua_gc(state, LUA_GCCOLLECT);
    for (const auto& [index, native, path] : passed_) {
      const char* now = Quen_filePathFromObject(native);
      if (now != path) lua_pushstring(state, now);
      if (now != path) lua_setfield(state, index, "_path");
    }
  }

  void give(lua_State* state, bool result) { lua_pushboolean(state, result); }

  void give(lua_State* state, std::int64_t result) {
    if (result > 0 && parameters_.fills) {
      bytes_ = small::byteArrayContents(passed_[0].native);
      push(state, {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()});
      lua_setfield(state, passed_[0].index, "bytes");
    }
    lua_pushinteger(state, result);
  }

  void give(lua_State* state, void* result) {
    if (result == nullptr) return lua_pushnil(state);
    for (const Passed& each : passed_) {
      if (each.native == result) return lua_pushvalue(state, each.index);
    }
    if (const char* path = Quen_filePathFromObject(result))
      return pushNewPath(state, path, small::isFolderPath(result),
                         small::hasParentTraversal(result));
    const std::string_view text = small::stringView(result);
    if (text.data() != nullptr) return push(state, text);
    elements_ = small::listElements(result);
    lua_createtable(state, static_cast<int>(elements_.size()), 0);
    for (std::size_t i = 0; i < elements_.size(); ++i) {
      push(state, small::stringView(elements_[i]));
      lua_rawseti(state, -2, static_cast<lua_Integer>(i + 1));
    }
  }

 private:
  struct Passed {
    int index;
    void* native;
    const char* path;  // before the call
  };

  static void* copyIn(lua_State* state, int index) {
    if (lua_type(state, index) == LUA_TSTRING) return small::newString(viewOf(state, index));
    if (isInstance(state, index, "Path")) return copyPathIn(state, index);
    if (!isInstance(state, index, "Byte[]")) return small::newObject("Object");
    lua_getfield(state, index, "bytes");
    const std::string_view bytes = viewOf(state, -1);
    return small::newByteArray(std::vector<std::uint8_t>(bytes.begin(), bytes.end()));
  }

  static void* copyPathIn(lua_State* state, int index) {
    lua_getfield(state, index, "_path");
    lua_getfield(state, index, "_hasParentTraversal");
    if (!lua_isstring(state, -2)) return small::newObject("quen.io.Path");
    const auto make =
        isInstance(state, index, "FolderPath") ? small::newFolderPath : small::newPath;
    return make(viewOf(state, -2), lua_toboolean(state, -1) != 0);
  }

  Parameters parameters_;
  small::Scope scope_;
  std::optional<small::Exception> raised_;
  std::vector<void*> elements_;
  std::vector<std::uint8_t> bytes_;
  std::array<Passed, 2> passed_{};
  int passedCount_ = 0;
};

}  // namespace

int luaopen_quen_io(lua_State* state) { return makeModule<Conversion>(state); }
