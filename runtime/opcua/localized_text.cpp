// SPDX-License-Identifier: MIT
// OpcUa_LocalizedText: a text and its locale.
#include "opcua/opcua.h"

void OpcUa_LocalizedText_Initialize(OpcUa_LocalizedText* text) {
  if (text == nullptr) return;
  OpcUa_String_Initialize(&text->Locale);
  OpcUa_String_Initialize(&text->Text);
}

void OpcUa_LocalizedText_Clear(OpcUa_LocalizedText* text) {
  if (text == nullptr) return;
  OpcUa_String_Clear(&text->Locale);
  OpcUa_String_Clear(&text->Text);
}

OpcUa_StatusCode OpcUa_LocalizedText_CopyTo(const OpcUa_LocalizedText* source,
                                            OpcUa_LocalizedText* target) {
  if (source == nullptr || target == nullptr) return OpcUa_BadInvalidArgument;
  const OpcUa_StatusCode status =
      OpcUa_String_StrnCpy(&target->Locale, &source->Locale, OPCUA_STRING_LENDONTCARE);
  if (OpcUa_IsBad(status)) return status;
  return OpcUa_String_StrnCpy(&target->Text, &source->Text, OPCUA_STRING_LENDONTCARE);
}
