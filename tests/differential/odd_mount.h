// Mounts FUSE file systems: that of odd_fs.cpp, and others. Only defined if libfuse was found
// (QUEN_IO_ODD_FS).
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <vector>

namespace quen::differential {

// Starts a server, which prints "mounted" when it is ready. Returns its process; -1 if FUSE file
// systems cannot be mounted here.
pid_t mountWith(const std::vector<std::string>& command);
pid_t mountOddFs(const std::filesystem::path& folder);

void killServer(pid_t server);

// Also if the folder is in use, or the server was killed. Does nothing if it is not mounted.
void unmountOddFs(const std::filesystem::path& folder);

}  // namespace quen::differential
