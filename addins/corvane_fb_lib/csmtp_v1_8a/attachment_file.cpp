// SPDX-License-Identifier: MIT
// With 64-bit file offsets on every machine: a huge file is too big, not missing.
#define _FILE_OFFSET_BITS 64
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

AttachmentFile::AttachmentFile(const std::string& path) : file_(nullptr) {
  const int descriptor = OpenOrdinaryFile(path.c_str());
  if (descriptor < 0) throw ECSmtp(SMTP_ERR_FILE_NOT_EXIST);
  file_ = fdopen(descriptor, "rb");
  if (file_ != nullptr) return;
  close(descriptor);
  throw ECSmtp(SMTP_ERR_FILE_NOT_EXIST);
}

std::size_t AttachmentFile::Measure(std::size_t limit) {
  std::array<unsigned char, 4096> block;
  std::size_t size = 0;
  while (const std::size_t length = Read(block)) {
    size += length;
    if (size > limit) throw ECSmtp(SMTP_ERR_MSG_TOO_BIG);
  }
  std::rewind(file_);
  return size;
}

std::size_t AttachmentFile::Read(std::span<unsigned char> block) {
  const std::size_t length = std::fread(block.data(), 1, block.size(), file_);
  if (std::ferror(file_) != 0) throw ECSmtp(SMTP_ERR_FILE_NOT_EXIST);
  return length;
}

void AttachmentFile::Close() {
  std::fclose(file_);
}
