// SPDX-License-Identifier: MIT
// A file that is attached to an e-mail: measured once, then read from its start.
// Compatibility: only Close closes it, so a send that fails leaves it open until the message goes.
// One thread.
#pragma once

#include <cstddef>
#include <span>
#include <string>

class AttachmentFile {
 public:
  /// Only an ordinary file will do: a folder has no bytes, and a pipe or a device could keep the
  /// reader waiting for ever. Throws ECSmtp 404 when there is none that can be read.
  explicit AttachmentFile(const std::string& path);
  AttachmentFile(const AttachmentFile&) = delete;
  AttachmentFile& operator=(const AttachmentFile&) = delete;

  /// The bytes from here to the end, and back to the start.
  /// Throws ECSmtp: 405 more than `limit`, 404 as Read.
  [[nodiscard]] std::size_t Measure(std::size_t limit);
  /// Reads the next block. @return its bytes; fewer than the block has only at the end of the file
  /// Throws ECSmtp 404 when the file cannot be read any more.
  [[nodiscard]] std::size_t Read(std::span<unsigned char> block);
  void Close();

 private:
  int descriptor_;
};
