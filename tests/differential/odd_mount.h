// Mounts the FUSE file system of odd_fs.cpp. Only defined if libfuse was found (QUEN_IO_ODD_FS).
#pragma once

#include <sys/types.h>

#include <filesystem>

namespace quen::differential {

// Returns the process of the server; -1 if FUSE file systems cannot be mounted here.
pid_t mountOddFs(const std::filesystem::path& folder);

void killServer(pid_t server);

// Also if the folder is in use, or the server was killed. Does nothing if it is not mounted.
void unmountOddFs(const std::filesystem::path& folder);

}  // namespace quen::differential
