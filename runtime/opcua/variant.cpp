// SPDX-License-Identifier: MIT
// OpcUa_Variant: releases what a value owns.
#include <cstring>

#include "opcua/opcua.h"

namespace {

void ReleaseArray(OpcUa_Byte type, OpcUa_VariantArray* array) {
  if (type == OpcUaType_String && array->Value.Strings != nullptr) {
    for (OpcUa_Int32 i = 0; i < array->Length; ++i) OpcUa_String_Clear(&array->Value.Strings[i]);
  }
  OpcUa_Memory_Free(array->Value.Elements);
}

void ReleaseScalar(OpcUa_Variant* variant) {
  switch (variant->Datatype) {
    case OpcUaType_String:
    case OpcUaType_Extended: OpcUa_String_Clear(&variant->Value.String); break;
    case OpcUaType_LocalizedText:
      OpcUa_LocalizedText_Clear(variant->Value.LocalizedText);
      OpcUa_Memory_Free(variant->Value.LocalizedText);
      break;
    case OpcUaType_DataValue:
      if (variant->Value.DataValue != nullptr) {
        OpcUa_Variant_Clear(&variant->Value.DataValue->Value);
        OpcUa_Memory_Free(variant->Value.DataValue);
      }
      break;
    default: break;  // nothing owned, or a pointer that copies share
  }
}

}  // namespace

void OpcUa_Variant_Initialize(OpcUa_Variant* variant) {
  // cppcheck-suppress memsetClassFloat ; zero octets are 0.0 (ISO/IEC 60559)
  if (variant != nullptr) std::memset(variant, 0, sizeof *variant);
}

void OpcUa_Variant_Clear(OpcUa_Variant* variant) {
  if (variant == nullptr) return;
  if (variant->ArrayType == OpcUa_VariantArrayType_Scalar) {
    ReleaseScalar(variant);
  } else if (variant->ArrayType == OpcUa_VariantArrayType_Array) {
    ReleaseArray(variant->Datatype, &variant->Value.Array);
  }
  OpcUa_Variant_Initialize(variant);
}
