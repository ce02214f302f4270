// SPDX-License-Identifier: MIT
// OpcUa_String: text with a length, owned or borrowed.
#include <algorithm>
#include <cstring>

#include "opcua/opcua.h"

namespace {

/// A NUL-terminated copy in `string`, which holds nothing yet.
OpcUa_StatusCode SetCopy(OpcUa_String* string, const char* source, OpcUa_UInt32 length) {
  auto* copy = static_cast<char*>(OpcUa_Memory_Alloc(static_cast<std::size_t>(length) + 1));
  if (copy == nullptr) return OpcUa_BadOutOfMemory;
  std::memcpy(copy, source, length);
  copy[length] = '\0';
  *string = {copy, length, OpcUa_True};
  return OpcUa_Good;
}

}  // namespace

void OpcUa_String_Initialize(OpcUa_String* string) {
  if (string != nullptr) *string = {nullptr, 0, OpcUa_False};
}

void OpcUa_String_Clear(OpcUa_String* string) {
  if (string == nullptr) return;
  if (string->FreeOnClear != OpcUa_False) OpcUa_Memory_Free(string->Content);
  OpcUa_String_Initialize(string);
}

OpcUa_StatusCode OpcUa_String_AttachToString(const char* source, OpcUa_UInt32 length,
                                             OpcUa_UInt32 capacity, OpcUa_Boolean copy,
                                             OpcUa_Boolean free_on_clear, OpcUa_String* string) {
  if (source == nullptr || string == nullptr) return OpcUa_BadInvalidArgument;
  const bool up_to_nul = length == OPCUA_STRING_LENDONTCARE || (length == 0 && capacity > 0);
  if (up_to_nul) length = static_cast<OpcUa_UInt32>(std::strlen(source));
  if (copy != OpcUa_False) {
    const OpcUa_StatusCode status = SetCopy(string, source, length);
    if (!OpcUa_IsBad(status)) string->FreeOnClear = free_on_clear;
    return status;
  }
  // The bytes are only read unless the caller handed them over to be released.
  *string = {const_cast<char*>(source), length, free_on_clear};
  return OpcUa_Good;
}

OpcUa_StatusCode OpcUa_String_StrnCpy(OpcUa_String* target, const OpcUa_String* source,
                                      OpcUa_UInt32 length) {
  if (target == nullptr || source == nullptr) return OpcUa_BadInvalidArgument;
  OpcUa_String copy;
  OpcUa_String_Initialize(&copy);
  if (source->Content != nullptr) {
    const OpcUa_StatusCode status =
        SetCopy(&copy, source->Content, std::min(length, source->Length));
    if (OpcUa_IsBad(status)) return status;
  }
  OpcUa_String_Clear(target);  // only now: the target may be the source
  *target = copy;
  return OpcUa_Good;
}

char* OpcUa_String_GetRawString(const OpcUa_String* string) {
  return string == nullptr ? nullptr : string->Content;
}

OpcUa_UInt32 OpcUa_String_StrLen(const OpcUa_String* string) {
  return string == nullptr || string->Content == nullptr ? 0 : string->Length;
}
