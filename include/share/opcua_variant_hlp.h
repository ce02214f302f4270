// SPDX-License-Identifier: MIT
// OpcUa_Variant as a C++ value: owns its contents, copies them deeply, renders them as text.
// Header only, except GetUaTypeFromName (corvaneshare.so). A value belongs to one thread at a time.
#pragma once

#include <cstring>
#include <new>
#include <sstream>
#include <string>

#include "opcua/opcua.h"
#include "share/log.h"

class OpcUa_VariantHlp : public OpcUa_Variant {
 public:
  OpcUa_VariantHlp() { OpcUa_Variant_Initialize(this); }
  OpcUa_VariantHlp(const OpcUa_VariantHlp& other) : OpcUa_VariantHlp() {
    CopyVariants(*this, other, false);
  }
  OpcUa_VariantHlp& operator=(const OpcUa_VariantHlp& other) {
    if (this != &other) CopyVariants(*this, other, true);
    return *this;
  }
  ~OpcUa_VariantHlp() { OpcUa_Variant_Clear(this); }

  /// Built-in type of an IEC 61131-3 elementary type name ("BOOL", "DINT", ...);
  /// OpcUaType_Null for any other name.
  [[nodiscard]] static OpcUa_BuiltInType GetUaTypeFromName(const std::string& name);

  void SetBoolean(bool value) {
    Reset(OpcUaType_Boolean);
    Value.Boolean = value ? OpcUa_True : OpcUa_False;
  }
  void SetInt32(OpcUa_Int32 value) {
    Reset(OpcUaType_Int32);
    Value.Int32 = value;
  }
  void SetDouble(OpcUa_Double value) {
    Reset(OpcUaType_Double);
    Value.Double = value;
  }
  void SetDateTime(OpcUa_DateTime ticks) {
    Reset(OpcUaType_DateTime);
    Value.DateTime = ticks;
  }
  /// Stores a copy of the bytes, NULs included. Out of memory: traced, the value is a null string.
  /// @return OpcUa_Good or the bad status of the attach
  OpcUa_StatusCode SetString(const char* text, std::size_t length);
  /// A null value of `type`: false, 0, the empty text.
  void Reset(OpcUa_BuiltInType type) {
    if (IsPlain()) {
      // cppcheck-suppress memsetClassFloat ; zero octets are 0.0 (ISO/IEC 60559)
      std::memset(&Value, 0, sizeof Value);
    } else {
      OpcUa_Variant_Clear(this);
    }
    Datatype = static_cast<OpcUa_Byte>(type);
  }

  /// The text form of a scalar value; `out` stays as it is if there is none.
  /// @return OpcUa_Good, or OpcUa_BadNoText for Null and the structured types, DateTime included,
  /// and for several strings. Compatibility: an array of another type is rendered as if it were
  /// a scalar.
  OpcUa_StatusCode GetString(std::string& out) const;

  /// Copies strings, string arrays, localized texts and data values deeply; other scalars bit for
  /// bit, so that a pointer in them is shared. Other arrays are not copied, which is logged: the
  /// target then has the type, but no elements.
  /// @param clear_first release what `dst` holds; without it `dst` must own nothing
  static void CopyVariants(OpcUa_Variant& dst, const OpcUa_Variant& src, bool clear_first);

 private:
  /// Whether the value is a scalar that owns nothing, so that there is nothing to release.
  [[nodiscard]] bool IsPlain() const {
    return Datatype < OpcUaType_String && ArrayType == OpcUa_VariantArrayType_Scalar;
  }
  static bool IsText(OpcUa_Byte type) {
    return type == OpcUaType_String || type == OpcUaType_Extended;
  }
  static void CopyStringArray(OpcUa_Variant& dst, const OpcUa_Variant& src);
  static void CopyScalar(OpcUa_Variant& dst, const OpcUa_Variant& src);
};

inline OpcUa_StatusCode OpcUa_VariantHlp::SetString(const char* text, std::size_t length) {
  Reset(OpcUaType_String);
  // A length that does not fit in the stack's 32 bits counts as out of memory.
  const OpcUa_StatusCode status =
      length >= OPCUA_STRING_LENDONTCARE
          ? OpcUa_BadOutOfMemory
          : OpcUa_String_AttachToString(text, static_cast<OpcUa_UInt32>(length), 0, OpcUa_True,
                                        OpcUa_True, &Value.String);
  if (OpcUa_IsBad(status)) {
    // Readers of the log know this position, so it stays, whatever line this is now.
    OpcUa_Trace_Imp(OPCUA_TRACE_LEVEL_WARNING, "include/share/opcua_variant_hlp", 484,
                    "<--ReturnError: OpcUa_String_AttachToString((char*)s, size, 0, OpcUa_True, "
                    "OpcUa_True, &(Value.String)) returns 0x%08X\n",
                    status);
  }
  return status;
}

inline OpcUa_StatusCode OpcUa_VariantHlp::GetString(std::string& out) const {
  std::ostringstream stream;
  switch (Datatype) {
    case OpcUaType_Boolean: stream << (Value.Boolean != 0 ? "true" : "false"); break;
    case OpcUaType_SByte:  // Compatibility: SByte and Byte are read through the 16-bit slot, so an
    case OpcUaType_Byte:   // SByte of -1, whose other bytes are zero, is "255".
    case OpcUaType_Int16: stream << Value.Int16; break;
    case OpcUaType_UInt16: stream << Value.UInt16; break;
    case OpcUaType_Int32: stream << Value.Int32; break;
    case OpcUaType_UInt32: stream << Value.UInt32; break;
    case OpcUaType_Int64: stream << Value.Int64; break;
    case OpcUaType_UInt64: stream << Value.UInt64; break;
    case OpcUaType_Float: stream << static_cast<double>(Value.Float); break;
    case OpcUaType_Double: stream << Value.Double; break;
    case OpcUaType_String:
    case OpcUaType_Extended: {
      // In an array, Value holds no string.
      if (ArrayType != OpcUa_VariantArrayType_Scalar) return OpcUa_BadNoText;
      const char* text = OpcUa_String_GetRawString(&Value.String);
      out.assign(text == nullptr ? "" : text, OpcUa_String_StrLen(&Value.String));
      return OpcUa_Good;
    }
    default: return OpcUa_BadNoText;
  }
  out = stream.str();
  return OpcUa_Good;
}

inline void OpcUa_VariantHlp::CopyVariants(OpcUa_Variant& dst, const OpcUa_Variant& src,
                                           bool clear_first) {
  if (clear_first) OpcUa_Variant_Clear(&dst);
  dst.Datatype = src.Datatype;
  dst.ArrayType = src.ArrayType;
  dst.Reserved = 0;
  std::memset(&dst.Value, 0, sizeof dst.Value);
  if (src.ArrayType == OpcUa_VariantArrayType_Scalar) {
    CopyScalar(dst, src);
  } else if (src.ArrayType == OpcUa_VariantArrayType_Array) {
    if (src.Datatype == OpcUaType_String) {
      CopyStringArray(dst, src);
    } else {
      logMsg("OPC UA array not supprtoed for type %d\n\r", src.Datatype);
    }
  } else if (src.ArrayType == OpcUa_VariantArrayType_Matrix) {
    logMsg("OPC UA matrix array not supprtoed \n\r");
  }
}

inline void OpcUa_VariantHlp::CopyStringArray(OpcUa_Variant& dst, const OpcUa_Variant& src) {
  const OpcUa_Int32 length = src.Value.Array.Length;
  if (length <= 0) return;
  const auto count = static_cast<std::size_t>(length);
  auto* strings = static_cast<OpcUa_String*>(OpcUa_Memory_Alloc(count * sizeof(OpcUa_String)));
  if (strings == nullptr) return;
  for (std::size_t i = 0; i < count; ++i) {
    OpcUa_String_Initialize(&strings[i]);
    OpcUa_String_StrnCpy(&strings[i], &src.Value.Array.Value.Strings[i], OPCUA_STRING_LENDONTCARE);
  }
  dst.Value.Array.Length = length;
  dst.Value.Array.Value.Strings = strings;
}

inline void OpcUa_VariantHlp::CopyScalar(OpcUa_Variant& dst, const OpcUa_Variant& src) {
  if (IsText(src.Datatype)) {
    OpcUa_String_Initialize(&dst.Value.String);
    OpcUa_String_StrnCpy(&dst.Value.String, &src.Value.String, OPCUA_STRING_LENDONTCARE);
  } else if (src.Datatype == OpcUaType_LocalizedText && src.Value.LocalizedText != nullptr) {
    auto* text = static_cast<OpcUa_LocalizedText*>(OpcUa_Memory_Alloc(sizeof(OpcUa_LocalizedText)));
    if (text == nullptr) return;
    OpcUa_LocalizedText_Initialize(text);
    OpcUa_LocalizedText_CopyTo(src.Value.LocalizedText, text);
    dst.Value.LocalizedText = text;
  } else if (src.Datatype == OpcUaType_DataValue && src.Value.DataValue != nullptr) {
    auto* copy = new OpcUa_DataValue{};  // released by the stack, whose memory is operator new's
    const OpcUa_DataValue& from = *src.Value.DataValue;
    copy->StatusCode = from.StatusCode;
    copy->SourceTimestamp = from.SourceTimestamp;
    copy->ServerTimestamp = from.ServerTimestamp;
    copy->SourcePicoseconds = from.SourcePicoseconds;
    copy->ServerPicoseconds = from.ServerPicoseconds;
    dst.Value.DataValue = copy;
    CopyVariants(copy->Value, from.Value, false);
  } else {
    dst.Value = src.Value;
  }
}
