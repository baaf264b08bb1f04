// The conformance kit over the operations of examples/lua/own_objects.cpp, with a state of Lua
// inside the program.

#include "examples/lua/own_objects.cpp"
#include "tests/hosts/host_adapter.h"

namespace {

class LuaAdapter final : public quen::hosts::HostAdapter {
 public:
  void* newByteArray(const std::vector<std::uint8_t>& bytes) const override {
    return newOf("ByteArray", {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }

  void* newOtherObject() const override { return Quen_allocObject("Object"); }

  std::string stringBytes(void* string) const override {
    std::string_view bytes;
    withState([&](lua_State* state) {
      pushObject(state, string);
      bytes = viewOf(state, -1);
    });
    return std::string(bytes);
  }

  std::vector<void*> listElements(void* list) const override {
    std::vector<void*> elements;
    withState([&](lua_State* state) {
      pushObject(state, list);
      const int table = lua_gettop(state);
      for (std::size_t i = 1; i <= lua_rawlen(state, table); ++i) {
        lua_rawgeti(state, table, static_cast<lua_Integer>(i));
        elements.push_back(newHandle(state));
      }
    });
    return elements;
  }

  bool isFolderPath(void* path) const override {
    return Quen_isInstanceOf(path, "FolderPath") != 0;
  }

  std::optional<bool> sameObject(void* one, void* other) const override {
    bool same = false;
    withState([&](lua_State* state) {
      pushObject(state, one);
      const int first = lua_gettop(state);
      pushObject(state, other);
      same = lua_rawequal(state, first, -1) != 0;
    });
    return same;
  }

  // Every 31st time, so that the run takes a second: each goes through all handles of the run.
  void collect() const override {
    static int calls = 0;
    if (++calls % 31 != 0) return;
    withState([](lua_State* state) { lua_gc(state, LUA_GCCOLLECT); });
  }

  // A state of Lua belongs to one thread at a time.
  bool oneThreadOnly() const override { return true; }

 private:
  void* newOf(const char* className, const std::string& content) const override {
    void* object = nullptr;
    withState([&](lua_State* state) {
      pushNew(state, className, content, [&] { lua_pushboolean(state, 0); });
      object = newHandle(state);
    });
    return object;
  }
};

}  // namespace

int main(int count, char** arguments) {
  lua_State* state = luaL_newstate();
  luaL_openlibs(state);
  luaL_requiref(state, "quen_io", luaopen_quen_io, 0);
  if (luaL_dostring(state, "local q = require 'quen_io'; q.Home = q.class('Home', q.FolderPath)"))
    return 2;
  const Frame frame(state);  // the handles of the whole run
  return quen::conformance::runConformance(LuaAdapter(), count, arguments);
}
