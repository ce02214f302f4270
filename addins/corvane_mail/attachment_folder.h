// SPDX-License-Identifier: MIT
// The copies of attachments that belong to mails which wait, below the state folder:
// attachments/MAIL/NUMBER. Everything here may wait for a disk. Threads: any; what concerns one
// mail, one at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "addins/corvane_mail/mail_content.h"

namespace corvane_mail {

/// Of all attachments of a mail together, in octets.
inline constexpr std::uint64_t kMaxAttachments = std::uint64_t{25} << 20;

class AttachmentFolder {
 public:
  /// Of all mails together, in octets, while the folder cannot be written.
  static constexpr std::uint64_t kMaxMemory = std::uint64_t{100} << 20;

  /// @param state_folder empty: none, so that attachments stay in memory
  explicit AttachmentFolder(const std::filesystem::path& state_folder);

  struct Taken {
    std::vector<StoredAttachment> attachments;
    std::string problem;  ///< a sentence: what is wrong with which file, what to do; empty: none
  };
  enum class Keep : std::uint8_t {
    kOnDisk,    ///< if they cannot be written, in memory
    kInMemory,  ///< the folder may belong to another program
  };
  /// Copies the files, as long as they are now, and returns when the copies would survive a power
  /// cut, or are in memory.
  /// @param mail a name for the mail: letters and digits
  [[nodiscard]] Taken Take(const std::string& mail, const std::vector<std::string>& paths,
                           Keep keep = Keep::kOnDisk);
  /// Writes attachments that are in memory, under the names that they have already.
  /// @return whether the copies would survive a power cut
  [[nodiscard]] bool Save(const std::string& mail,
                          const std::vector<StoredAttachment>& in_memory) const;
  /// From the beginning; null: it is no longer there, or not as long as it was.
  [[nodiscard]] std::unique_ptr<mail::Octets> Open(const StoredAttachment& attachment) const;
  /// Removes the copies of a mail, if there are any.
  void Remove(const std::string& mail) const noexcept;
  /// Removes all copies but those of these mails.
  void RemoveOthers(const std::set<std::string>& mails) noexcept;

 private:
  struct Source;

  [[nodiscard]] std::vector<StoredAttachment> Write(const std::string& mail,
                                                    std::vector<Source>& sources) const;
  [[nodiscard]] std::vector<StoredAttachment> Remember(const std::string& mail,
                                                       std::vector<Source>& sources);

  const std::filesystem::path folder_;
  std::shared_ptr<std::atomic<std::uint64_t>> in_memory_ =
      std::make_shared<std::atomic<std::uint64_t>>(0);  // octets
};

/// The name of the mail with this Message-ID in the folder.
[[nodiscard]] std::string FolderOf(const std::string& message_id);

}  // namespace corvane_mail
