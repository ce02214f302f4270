// SPDX-License-Identifier: MIT
// Memory of variants, on the global operator new so that records made with `new` can be released.
#include <new>

#include "opcua/opcua.h"

void* OpcUa_Memory_Alloc(std::size_t size) {
  return ::operator new(size, std::nothrow);
}

void OpcUa_Memory_Free(void* memory) {
  ::operator delete(memory);
}
