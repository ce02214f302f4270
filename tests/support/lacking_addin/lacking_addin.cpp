// SPDX-License-Identifier: MIT
// An add-in that needs a library which the loader does not find.
extern "C" int CorvaneAbsent();

extern "C" int InitAddin() {
  return CorvaneAbsent();
}

extern "C" void DisposeAddin() {}
