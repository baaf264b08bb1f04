#include "tests/differential/odd_mount.h"

#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <string>

namespace quen::differential {

pid_t mountOddFs(const std::filesystem::path& folder) {
  return mountWith({QUEN_IO_ODD_FS, folder});
}

pid_t mountWith(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  std::array<int, 2> said{};
  if (pipe(said.data()) != 0) return -1;
  const pid_t server = fork();
  if (server == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // it unmounts, also after a crash of this process
    dup2(said[1], STDOUT_FILENO);
    close(said[0]);
    close(said[1]);
    execv(arguments[0], arguments.data());
    _exit(1);
  }
  close(said[1]);
  char byte = 0;
  const bool mounted = read(said[0], &byte, 1) == 1;  // its first output, after mounting
  close(said[0]);
  if (mounted || server == -1) return server;
  waitpid(server, nullptr, 0);
  return -1;
}

void killServer(pid_t server) {
  kill(server, SIGKILL);
  waitpid(server, nullptr, 0);
}

// An ordinary user needs fusermount3.
void unmountOddFs(const std::filesystem::path& folder) {
  if (umount2(folder.c_str(), MNT_DETACH) == 0) return;
  const std::string command = "fusermount3 -u -z " + folder.string() + " 2>/dev/null";
  [[maybe_unused]] const int status = std::system(command.c_str());
}

}  // namespace quen::differential
