// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/paired_lines.h"

#include <utility>

#include "runtime/modem_driver/listed_pdu.h"

namespace corvane {

void PairedLines::Begin(std::string_view header) {
  Clear();
  header_ = header;
}

bool PairedLines::Take(std::string_view line) {
  if (header_.empty()) return false;
  if (pdu_.empty()) {
    pdu_ = line;
    return true;
  }
  std::string whole = pdu_;
  whole += line;
  if (!interrupted_ || whole.size() != AnnouncedSize(header_, whole)) return false;
  pdu_ = std::move(whole);
  return true;
}

bool PairedLines::IsShort() const {
  return pdu_.size() < 2 || pdu_.size() < AnnouncedSize(header_, pdu_);
}

}  // namespace corvane
