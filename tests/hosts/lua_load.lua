-- Calls of the module quen_io for Lua that go on and on.

local quen_io = require "quen_io"
local load = {}

-- One of everything that makes objects, `count` times in all.
function load.mixedCalls(count, scratch)
  local folder, array = quen_io.FolderPath(scratch .. "/a/../b"), quen_io.ByteArray(100)
  local text = scratch .. "/text"
  quen_io.FileWriter._writePath(text, string.rep("text", 100))
  for _ = 1, count / 5 do
    folder:normalize()
    folder:resolve("name")
    quen_io.FolderPath._listNamesNative(scratch)
    quen_io.FileInputStream._readBytesPath(text, 0, array, 100)
    pcall(quen_io.FileReader._readAllTextPath, "/nowhere")
  end
end

-- The resident memory after a collection.
function load.residentKib()
  collectgarbage()
  local status <close> = assert(io.open("/proc/self/status"))
  return tonumber(status:read("a"):match("VmRSS:%s*(%d+)"))
end

return load
