// SPDX-License-Identifier: MIT
// The thread that touches attachments, whose disk may not answer: it is left behind then, so the
// code must stay loaded (the linker's -z nodelete).
#pragma once

#include <functional>
#include <memory>

namespace corvane_mail {

class FileThread {
 public:
  FileThread();
  FileThread(const FileThread&) = delete;
  FileThread& operator=(const FileThread&) = delete;
  /// What has not begun is dropped; what has begun goes on by itself.
  ~FileThread();

  /// Runs the work after all earlier work. It must own what it uses, and not throw.
  void Post(std::function<void()> work);

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace corvane_mail
