// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/attachment_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "addins/corvane_fb_lib/csmtp_v1_8a/ecsmtp.h"

namespace {

/// A descriptor of an ordinary file, or -1.
int OpenOrdinaryFile(const char* path) {
  // Without O_NONBLOCK a pipe would wait here for its writer.
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (descriptor < 0 || (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode))) {
    return descriptor;
  }
  close(descriptor);
  return -1;
}

}  // namespace

AttachmentFile::AttachmentFile(const std::string& path)
    : descriptor_(OpenOrdinaryFile(path.c_str())) {
  if (descriptor_ < 0) throw ECSmtp(SMTP_ERR_FILE_NOT_EXIST);
}

std::size_t AttachmentFile::Measure(std::size_t limit) {
  std::array<unsigned char, 32768> block;
  std::size_t size = 0;
  while (const std::size_t length = Read(block)) {
    size += length;
    if (size > limit) throw ECSmtp(SMTP_ERR_MSG_TOO_BIG);
  }
  if (lseek(descriptor_, 0, SEEK_SET) != 0) throw ECSmtp(SMTP_ERR_FILE_NOT_EXIST);
  return size;
}

std::size_t AttachmentFile::Read(std::span<unsigned char> block) {
  std::size_t count = 0;
  while (count < block.size()) {
    const ssize_t length = read(descriptor_, &block[count], block.size() - count);
    if (length < 0) throw ECSmtp(SMTP_ERR_FILE_NOT_EXIST);
    if (length == 0) break;
    count += static_cast<std::size_t>(length);
  }
  return count;
}

void AttachmentFile::Close() {
  close(descriptor_);
}
