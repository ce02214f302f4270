// SPDX-License-Identifier: MIT
#include "libs/messages/outbox_job.h"

namespace messages {
namespace {

constexpr std::size_t kLongestText = 1000;  // sentences for a hundred receivers help nobody

void Append(std::string& text, const std::string& receiver, const std::string& reason) {
  if (text.size() > kLongestText) {
    if (!text.ends_with(" ...")) text += " ...";
    return;
  }
  if (!text.empty()) text += "; ";
  text += receiver + ": " + reason;
}

}  // namespace

void OutboxJob::NoteError(int id_of_error, const std::string& receiver, const std::string& reason) {
  if (error_id == 0) error_id = id_of_error;
  Append(errors, receiver, reason);
}

void OutboxJob::NoteRepeat(const std::string& receiver, const std::string& reason) {
  Append(repeats, receiver, reason);
}

}  // namespace messages
