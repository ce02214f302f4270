// SPDX-License-Identifier: MIT
// The elementary types of IEC 61131-3 as OPC UA built-in types (OPC 30000).
#include "share/opcua_variant_hlp.h"

#include "runtime/corvaneshare/elementary_types.h"

OpcUa_BuiltInType OpcUa_VariantHlp::GetUaTypeFromName(const std::string& name) {
  for (const auto& type : corvane::kElementaryTypes) {
    if (name == type.name) return type.built_in;
  }
  return OpcUaType_Null;
}
