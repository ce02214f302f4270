// SPDX-License-Identifier: MIT
// An add-in by a careless author: its only type publishes no metadata.
#include "corvane/st_library.h"

namespace {

int OpenSilent(lua_State* L) {
  lua_newtable(L);
  lua_setglobal(L, "SILENT");
  return 1;
}

}  // namespace

extern "C" int InitAddin() {
  return RegisterExternalSTLib("SILENT", OpenSilent);
}

extern "C" void DisposeAddin() {}
