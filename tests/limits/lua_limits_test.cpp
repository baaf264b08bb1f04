// The module for Lua with little memory; on several threads each has a state of Lua of its own.

#include <gtest/gtest.h>

#include <filesystem>
#include <lua.hpp>
#include <memory>
#include <stdexcept>
#include <string>

#include "tests/limits/host_limits.h"

using namespace quen::tests;

namespace {

// prepare makes what the calls refer to, and the call as a function; describe gives three texts:
// the result, what was raised, and what was stored in arguments. "not enough memory" is Lua's own
// message.
constexpr const char* kScript = R"lua(
local quen_io = require "quen_io"
local ground
local text = string.rep("t", 20000)

local function file(name, contents)
  local made <close> = assert(io.open(name, "wb"))
  made:write(contents or "")
  return name
end

function prepare(scratch, call)
  collectgarbage()
  ground = {
    file = file(scratch .. "/file", text), folder = scratch .. "/folder",
    missing = scratch .. "/missing", text = text,
    bytes = quen_io.ByteArray(string.rep("b", 20000)), destination = quen_io.ByteArray(10000),
  }
  quen_io.FolderPath._mkdirNative(ground.folder)
  file(ground.folder .. "/a")
  file(ground.folder .. "/b")
  ground.filePath = quen_io.Path(ground.file)
  ground.folderPath = quen_io.FolderPath(ground.folder)
  ground.missingPath = quen_io.Path(ground.missing)
  ground.handle = quen_io.FileWriter._openPath(scratch .. "/written", 0)
  local made = assert(load("return " .. call, call, "t", setmetatable(ground, {__index = quen_io})))
  collectgarbage()  -- Lua would do it when there is no memory
  return made
end

local function words(value)
  if type(value) == "string" then return "String: " .. value end
  if type(value) ~= "table" then return tostring(value) end
  if value._path then
    return "Path: " .. value._path .. (value._hasParentTraversal and " (parent traversal)" or "")
  end
  table.sort(value)
  return table.concat(value, " ")
end

function describe(succeeded, value)
  assert(quen_io.Path._pathName("a/b") == "b", "nothing is pending any more")
  local arguments = ground.filePath._path .. " " .. ground.destination.bytes:gsub("\0", "")
  if succeeded then return words(value), "", arguments end
  local raised = type(value) == "table" and value.class .. ": " .. value.message or value
  return "", raised, arguments
end

function release()
  pcall(quen_io.FileWriter._closeHandle, ground.handle)
  ground = nil
  collectgarbage()
end
)lua";

struct CloseState {
  void operator()(lua_State* state) const { lua_close(state); }
};

class LuaCaller : public Caller {
 public:
  explicit LuaCaller(const std::string& call) : call_(call), owned_(luaL_newstate()) {
    luaL_openlibs(state_);
    lua_getglobal(state_, "package");
    lua_pushstring(state_, QUEN_IO_MODULE_FOLDER "/?.so");
    lua_setfield(state_, -2, "cpath");
    if (luaL_dostring(state_, kScript)) throw std::runtime_error(lua_tostring(state_, -1));
  }

  // Leaves the function of the call on the stack.
  void prepare() override {
    lua_settop(state_, 0);
    lua_getglobal(state_, "prepare");
    lua_pushstring(state_, scratch.path().c_str());
    lua_pushstring(state_, call_.c_str());
    run(2, 1);
    for (const char* name : {"file", "folder"}) {
      std::filesystem::last_write_time(scratch / name, std::filesystem::file_time_type{});
    }
  }

  // Leaves the result or the error there.
  void call() override { status_ = lua_pcall(state_, 0, 1, 0); }

  Outcome outcome() override {
    Outcome outcome;
    lua_getglobal(state_, "describe");
    lua_pushboolean(state_, status_ == LUA_OK);
    lua_pushvalue(state_, 1);
    run(2, 3);
    outcome.arguments = text(-1);
    outcome.raised = text(-2);
    outcome.result = text(-3);
    outcome.outOfMemory = outcome.raised.ends_with("not enough memory");
    return outcome;
  }

  void release() override {
    lua_settop(state_, 0);
    lua_getglobal(state_, "release");
    run(0, 0);
  }

 private:
  void run(int arguments, int results) {
    if (lua_pcall(state_, arguments, results, 0) != LUA_OK) ADD_FAILURE() << text(-1);
  }

  std::string text(int index) {
    std::size_t size = 0;
    const char* bytes = lua_tolstring(state_, index, &size);
    return {bytes, size};
  }

  std::string call_;
  std::unique_ptr<lua_State, CloseState> owned_;
  lua_State* state_ = owned_.get();
  int status_ = LUA_OK;
};

std::unique_ptr<Caller> newCaller(const std::string& call) {
  return std::make_unique<LuaCaller>(call);
}

TEST(LuaWithLittleMemory, FailsAsDocumentedOrSucceeds) { expectHostToFailOrSucceed(1, newCaller); }

TEST(LuaWithLittleMemory, FailsAsDocumentedOrSucceedsOnThreadsAtOnce) {
  expectHostToFailOrSucceed(4, newCaller);
}

}  // namespace
