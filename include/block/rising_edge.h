// SPDX-License-Identifier: MIT
// The rising edge of an input, from one call to the next. Threads: one at a time.
#pragma once

/// An input is FALSE before the first call, so TRUE in the first one is a rising edge.
class RisingEdge {
 public:
  /// Takes the input's value in this call. @return whether it has risen since the previous call
  bool Rises(bool value) {
    const bool rises = value && !last_;
    last_ = value;
    return rises;
  }

 private:
  bool last_ = false;
};
