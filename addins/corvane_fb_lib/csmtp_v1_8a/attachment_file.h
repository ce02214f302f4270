// SPDX-License-Identifier: MIT
// A file that is attached to an e-mail: measured once, then read from its start.
// Compatibility: only Close closes it, so a send that fails leaves it open until the
// process ends. One thread.
#pragma once

#include <cstddef>
#include <span>
#include <string>

class AttachmentFile {
 public:
  /// Opens only ordinary files: a folder has no bytes, and a pipe or a device could keep the reader
  /// waiting for ever. Throws ECSmtp 404 when there is no such file, or it cannot be read.
  explicit AttachmentFile(const std::string& path);
  AttachmentFile(const AttachmentFile&) = delete;
  AttachmentFile& operator=(const AttachmentFile&) = delete;

  /// Counts the bytes from here to the end, and goes back to the start.
  /// Throws ECSmtp: 405 more than `limit`, 404 as Read does.
  [[nodiscard]] std::size_t Measure(std::size_t limit);
  /// Fills `block` from the file. Throws ECSmtp 404 when the file can no longer be read.
  /// @return how many bytes were read; fewer than `block` holds only at the end
  [[nodiscard]] std::size_t Read(std::span<unsigned char> block);
  void Close();

 private:
  int descriptor_;
};
