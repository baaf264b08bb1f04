-- Calls per second of the module quen_io for Lua, and the memory after many calls:
-- long_run.lua CALLS FOLDER, with an empty folder

package.path = arg[0]:match("^(.*)/") .. "/?.lua"
local quen_io = require "quen_io"
local load = require "lua_load"
local calls, folder = tonumber(arg[1]), arg[2]

local file = folder .. "/text"
quen_io.FileWriter._writePath(file, string.rep("text", 1024))
for i = 0, 99 do quen_io.FileWriter._writePath(folder .. "/entry " .. i, "") end

-- Of processor time, for a call that is repeated for half a second.
local function perSecond(name, call, ...)
  local count, began = 0, os.clock()
  while os.clock() - began < 0.5 do
    for _ = 1, 100 do call(...) end
    count = count + 100
  end
  print(string.format("%s %12.0f", name, count / (os.clock() - began)))
end

perSecond("normalize a path object ", quen_io.Path.normalize, quen_io.Path("a/../b/c"))
perSecond("normalize a text        ", quen_io.Path._normalizePath, "a/../b/c")
perSecond("whether a path exists   ", quen_io.Path._exists, quen_io.Path(file))
perSecond("read a text of 4 KiB    ", quen_io.FileReader._readAllTextPath, file)
perSecond("read 4 KiB into an array", quen_io.FileInputStream._readBytesPath, file, 0,
          quen_io.ByteArray(4096), 4096)
perSecond("list 101 entries        ", quen_io.FolderPath._listNamesNative, folder)

for i = 0, 99 do quen_io.Path.remove(quen_io.Path(folder .. "/entry " .. i)) end
load.mixedCalls(10000, folder)
local before = load.residentKib()
load.mixedCalls(calls, folder)
print(string.format("KiB of memory before and after %d calls: %d %d", calls, before, load.residentKib()))
