-- The module quen_io for Lua, whichever form of it LUA_CPATH has: the same claims for both.
-- lua_test.lua [CLAIM]... runs those whose names contain one of the words; all when there is none.

local quen_io = require "quen_io"
local Path, FolderPath, FileReader = quen_io.Path, quen_io.FolderPath, quen_io.FileReader
local FileWriter, FileInputStream, Files = quen_io.FileWriter, quen_io.FileInputStream, quen_io.Files
local ByteArray = quen_io.ByteArray

local source = arg[0]:match("^(.*)/tests/hosts/")
package.path = source .. "/tests/hosts/?.lua"
local load = require "lua_load"
local scratch

local function equal(found, expected, what)
  if found ~= expected then
    error(string.format("%s: %s instead of %s", what or "it", found, expected), 2)
  end
end

local function path(name) return scratch .. "/" .. name end

local function file(name, contents)
  local made <close> = assert(io.open(path(name), "wb"))
  made:write(contents or "")
  return path(name)
end

local function contents(name)
  local opened <close> = assert(io.open(path(name), "rb"))
  return opened:read("a")
end

-- The error of a call that has to fail.
local function raised(call, ...)
  local done, exception = pcall(call, ...)
  if done then error("nothing was raised", 2) end
  return exception
end

local function output(command)
  local process <close> = assert(io.popen(command))
  return process:read("a")
end

-- Makes a tree, walks it, copies it through handles, and publishes an index of it.
local function realWork()
  for _, name in ipairs{"tree/a/b", "tree/c"} do FolderPath._mkdirsNative(path(name)) end
  for _, name in ipairs{"one", "a/two", "a/b/three", "c/four"} do
    FileWriter._writePath(path("tree/" .. name), string.rep("text of " .. name .. "\n", 50))
  end

  local found, waiting = {}, {FolderPath(path("tree"))}
  while #waiting > 0 do
    local here = table.remove(waiting)
    local names = FolderPath._listNamesNative(here._path)
    table.sort(names)
    for _, name in ipairs(names) do
      local below = here:resolve(name)
      if below:_isDirectory() then
        table.insert(waiting, FolderPath(below._path))
      else
        table.insert(found, below:_size() .. " " .. below:relativize(FolderPath(scratch))._path)
      end
    end
  end

  local handle = FileWriter._openPath(path("copy"), false)
  for _, each in ipairs(found) do
    FileWriter._writeHandle(handle, FileReader._readAllTextPath(path(each:match(" (.*)"))))
  end
  FileWriter._flushHandle(handle)
  FileWriter._closeHandle(handle)
  quen_io.DocumentIndexStore._writeAtomic(path("index"), table.concat(found, "\n"))

  local array = ByteArray(20)
  FileInputStream._readBytesPath(path("copy"), 5, array, 20)
  FolderPath._removeAllNative(path("tree"))
  equal(FileReader._readAllTextPath(path("index")),
        "600 tree/one\n750 tree/c/four\n700 tree/a/two\n900 tree/a/b/three")
  equal(array.bytes, "of one\ntext of one\nt")
  equal(#contents("copy"), 2950)
end

local collects = os.getenv("QUEN_IO_COLLECT") ~= nil

local claims = {
  {"every entry point is a member with the text of the header", function()
    local number = 0
    for name in output(source .. "/runtime/entry_points.py"):gmatch("%S+") do number = number + 1 end
    local members = 0
    for member, text in pairs(quen_io.help) do
      members = members + 1
      local names = text:match("^([%w_.]+)%(")
      local found = quen_io
      for part in names:gmatch("[^.]+") do found = found[part] end
      equal(found, member, names)
    end
    equal(members, number)
    equal(quen_io.help[FileReader._readAllTextPath]:match("^.-\n.-%."),
          "FileReader._readAllTextPath(path)\nThe whole file as a String.")
  end},

  {"another number of arguments and other types are refused", function()
    assert(raised(FileReader._readAllTextPath):find("1 arguments expected", 1, true))
    assert(raised(FileReader._readAllTextPath, {}):find("string expected", 1, true))
    assert(raised(FileReader._readPrefixPath, "a", "x"):find("number expected", 1, true))
    assert(raised(FileReader._readAllTextPath, "a\0b"):find("embedded zero byte", 1, true))
  end},

  {"paths keep their kind and their parent traversal", function()
    for _, class in ipairs{Path, FolderPath} do
      local normal = class("a/../b/"):normalize()
      equal(getmetatable(normal), class)
      equal(normal._path, "b/")
      equal(normal:normalize()._hasParentTraversal, true)
    end
    equal(Path("a"):normalize()._hasParentTraversal, false)
    equal(getmetatable(quen_io.class("Home", FolderPath)("a"):normalize()), FolderPath)
  end},

  {"paths are joined with texts and with paths", function()
    local base = FolderPath("a")
    equal(tostring(base:resolve("b/")), "FolderPath a/b/")
    equal(tostring(base:resolve(Path("b"))), "Path a/b")
    equal(base:resolve(nil), base)
    equal(Path.resolve(nil, "b"), nil)
  end},

  {"paths without a text count as empty", function()
    equal(Path(nil):normalize()._path, "")
    equal(Path("a"):parent(), nil)
    equal(Path(nil):name(), "")
  end},

  {"paths that are renamed have the new text", function()
    local renamed = Path(file("old"))
    renamed:rename("new")
    equal(renamed._path, path("new"))
    equal(renamed:_exists(), true)
  end},

  {"exceptions keep their class and their message", function()
    local closed = raised(FileWriter._writeHandle, 1 << 40, "text")
    equal(closed.class, "IOException")
    equal(closed.message, "File writer is closed")
    equal(tostring(raised(FileReader._readAllTextPath, nil)), "IOException: File path is empty")
    equal(tostring(raised(Path._exists, nil)), "NullException: Cannot read Path.exists on null")
    equal(tostring(raised(quen_io.TOML._readStrictPath, file("toml", "a\0"))),
          "quen.io.toml.TOMLParseException: Raw U+0000 is not allowed in TOML input at byte 1")
    local refused = raised(Files._writeBytesPath, path("file"), "no bytes")
    equal(refused.class, "TypeError")
    assert(refused.message:find("^Expected Byte%[%] but got "))
    equal(io.open(path("file")), nil)
  end},

  {"bytes of names and texts are kept whole", function()
    local name = "\xff\xc3(.txt"
    file(name, "\u{feff}a\0\r\n\u{1f600}")
    equal(table.concat(FolderPath._listNamesNative(scratch), "/"), name)
    equal(Path(path(name)):_exists(), true)
    equal(FileReader._readAllTextPath(path(name)), "\u{feff}a\0\r\n\u{1f600}")
    FileWriter._writePath(path(name), "\xff\xc3(")
    equal(contents(name), "\xff\xc3(")
  end},

  {"bytes fill the beginning of an array", function()
    local array = ByteArray("xxxxxxxxxx")
    equal(FileInputStream._readBytesPath(file("bytes", "abc\0\xff"), 3, array, 10), 2)
    equal(array.bytes, "\0\xffxxxxxxxx")
    for _, other in ipairs{"xxxxxxxxxx", {}, ByteArray(1), Path("a")} do
      equal(raised(FileInputStream._readBytesPath, path("bytes"), 0, other, 5).class, "TypeError")
    end
  end},

  {"bytes of an array are written", function()
    Files._writeBytesWithPrefixPath(path("file"), "prefix", ByteArray("a\0b"))
    equal(contents("file"), "prefixa\0b")
    Files._writeBytesWithPrefixPath(path("file"), "prefix", nil)
    equal(contents("file"), "prefix")
  end},

  {"work is done", realWork},

  {"work is done by coroutines", function()
    local worker = coroutine.wrap(function() realWork(); coroutine.yield(1); realWork(); return 2 end)
    equal(worker(), 1)
    equal(worker(), 2)
  end},

  {"finalizers may call entry points in the middle of a call", function()
    collectgarbage("stop")
    for i = 1, 50 do
      local handle = FileWriter._openPath(path(i), false)
      FileWriter._writeHandle(handle, "written")
      setmetatable({}, {__gc = function()
        raised(FileReader._readAllTextPath, "")
        FileWriter._closeHandle(handle)
      end})
    end
    if not collects then collectgarbage() end
    equal(tostring(raised(FileReader._readAllTextPath, "/nowhere")), "IOException: Cannot open file")
    local names = FolderPath._listNamesNative(scratch)
    collectgarbage("restart")
    equal(#names, 50)
    for _, name in ipairs(names) do equal(contents(name), "written") end
  end},

  {"memory is bounded", function()
    if collects then return end
    load.mixedCalls(10000, scratch)
    local before = load.residentKib()
    load.mixedCalls(50000, scratch)
    local grown = load.residentKib() - before
    if grown > 2048 then error("it has grown by " .. grown .. " KiB") end
  end},

  {"all of this holds with a collection in every operation", function()
    if collects then return end
    local command = string.format("QUEN_IO_COLLECT=1 lua5.4 '%s' 2>&1", arg[0])
    local printed = output(command)
    if not printed:find("\n0 claims fail") then error(printed) end
  end},
}

local function isChosen(claim)
  for _, word in ipairs(arg) do
    if claim:find(word, 1, true) then return true end
  end
  return #arg == 0
end

local failed = 0
for _, each in ipairs(claims) do
  local claim, check = table.unpack(each)
  if isChosen(claim) then
    scratch = output("mktemp -d"):gsub("\n", "")
    local done, reason = xpcall(check, function(reason) return debug.traceback(tostring(reason)) end)
    os.execute("rm -rf '" .. scratch .. "'")
    print((done and "holds  " or "FAILS  ") .. claim)
    if not done then
      failed = failed + 1
      print(reason)
    end
  end
end
print(failed .. " claims fail")
os.exit(failed == 0, true)
