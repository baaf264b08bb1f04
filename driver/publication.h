// The output of an index: standard output, or a file that is replaced atomically.
#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace quen::driver {

class Publication {
 public:
  explicit Publication(std::string path) : path_(std::move(path)) {}

  // "-" denotes standard output.
  bool isStandardOutput() const { return path_ == "-"; }

  // The reason why the path is refused, if it is: the rename would replace a device, pipe, folder
  // or a link to one.
  std::optional<std::string> refusal() const;

  // Publishes the contents with the permissions of the file that they replace. Returns the reason
  // of a failure, after which the older file is unchanged.
  std::optional<std::string> publish(const std::string& contents);

  // Called from another thread before the process terminates. Waits a short time for a publication
  // in progress, then removes its temporary file. Returns whether the contents were published.
  bool abandon();

 private:
  std::string path_;
  std::timed_mutex publishing_;
  bool published_ = false;
};

}  // namespace quen::driver
