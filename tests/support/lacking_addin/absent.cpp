// SPDX-License-Identifier: MIT
// A library that exists when the add-in is linked, and not where it is loaded.
extern "C" int CorvaneAbsent() {
  return 0;
}
