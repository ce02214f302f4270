// SPDX-License-Identifier: MIT
// The part of an OPC UA stack that variable values use: scalars, strings and variants
// (OPC 10000-6, built-in types), with C linkage. Implemented by opcua.so.
// Threads: a value belongs to one thread at a time; the functions share no state.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

using OpcUa_Boolean = std::uint8_t;
using OpcUa_SByte = std::int8_t;
using OpcUa_Byte = std::uint8_t;
using OpcUa_Int16 = std::int16_t;
using OpcUa_UInt16 = std::uint16_t;
using OpcUa_Int32 = std::int32_t;
using OpcUa_UInt32 = std::uint32_t;
using OpcUa_Int64 = std::int64_t;
using OpcUa_UInt64 = std::uint64_t;
using OpcUa_Float = float;
using OpcUa_Double = double;
using OpcUa_DateTime = std::int64_t;  ///< 100 ns ticks since 1601-01-01 UTC; 0 is the null time

/// 0 is good; the two top bits are 01 for uncertain, 10 for bad.
using OpcUa_StatusCode = std::uint32_t;

inline constexpr OpcUa_Boolean OpcUa_False = 0;
inline constexpr OpcUa_Boolean OpcUa_True = 1;

inline constexpr OpcUa_StatusCode OpcUa_Good = 0x00000000;
inline constexpr OpcUa_StatusCode OpcUa_BadOutOfMemory = 0x80030000;
inline constexpr OpcUa_StatusCode OpcUa_BadNoText = 0x80490000;  ///< the value has no text form
inline constexpr OpcUa_StatusCode OpcUa_BadInvalidArgument = 0x80AB0000;
constexpr bool OpcUa_IsBad(OpcUa_StatusCode status) {
  return (status & 0x80000000) != 0;
}

enum OpcUa_BuiltInType {
  OpcUaType_Null = 0,
  OpcUaType_Boolean = 1,
  OpcUaType_SByte = 2,
  OpcUaType_Byte = 3,
  OpcUaType_Int16 = 4,
  OpcUaType_UInt16 = 5,
  OpcUaType_Int32 = 6,
  OpcUaType_UInt32 = 7,
  OpcUaType_Int64 = 8,
  OpcUaType_UInt64 = 9,
  OpcUaType_Float = 10,
  OpcUaType_Double = 11,
  OpcUaType_String = 12,
  OpcUaType_DateTime = 13,
  OpcUaType_Guid = 14,
  OpcUaType_ByteString = 15,
  OpcUaType_XmlElement = 16,
  OpcUaType_NodeId = 17,
  OpcUaType_ExpandedNodeId = 18,
  OpcUaType_StatusCode = 19,
  OpcUaType_QualifiedName = 20,
  OpcUaType_LocalizedText = 21,
  OpcUaType_ExtensionObject = 22,
  OpcUaType_DataValue = 23,
  OpcUaType_Variant = 24,
  OpcUaType_DiagnosticInfo = 25,
  OpcUaType_Extended = 26  ///< highest id that values may carry; it is handled like String
};

inline constexpr OpcUa_Byte OpcUa_VariantArrayType_Scalar = 0;
inline constexpr OpcUa_Byte OpcUa_VariantArrayType_Array = 1;
inline constexpr OpcUa_Byte OpcUa_VariantArrayType_Matrix = 2;

/// Text: `Length` bytes at `Content`, which is null for a null string.
/// Strings that the stack copied end with a NUL that `Length` does not count.
struct OpcUa_String {
  char* Content;
  OpcUa_UInt32 Length;
  OpcUa_Boolean FreeOnClear;
};

struct OpcUa_LocalizedText {
  OpcUa_String Locale;
  OpcUa_String Text;
};

struct OpcUa_DataValue;

/// The elements of an array variant: `Length` elements at `Elements`, from OpcUa_Memory_Alloc.
struct OpcUa_VariantArray {
  OpcUa_Int32 Length;
  union {
    void* Elements;
    OpcUa_String* Strings;
  } Value;
};

union OpcUa_VariantValue {
  OpcUa_Boolean Boolean;
  OpcUa_SByte SByte;
  OpcUa_Byte Byte;
  OpcUa_Int16 Int16;
  OpcUa_UInt16 UInt16;
  OpcUa_Int32 Int32;
  OpcUa_UInt32 UInt32;
  OpcUa_Int64 Int64;
  OpcUa_UInt64 UInt64;
  OpcUa_Float Float;
  OpcUa_Double Double;
  OpcUa_String String;
  OpcUa_DateTime DateTime;
  OpcUa_LocalizedText* LocalizedText;
  OpcUa_DataValue* DataValue;
  void* Pointer;  ///< the types that the stack holds by pointer and that no block uses
  OpcUa_VariantArray Array;
};

/// A value with its type. Bytes of `Value` beyond the type's own are zero.
struct OpcUa_Variant {
  OpcUa_Byte Datatype;   ///< OpcUa_BuiltInType
  OpcUa_Byte ArrayType;  ///< OpcUa_VariantArrayType_*
  OpcUa_UInt16 Reserved;
  OpcUa_VariantValue Value;
};

struct OpcUa_DataValue {
  OpcUa_Variant Value;
  OpcUa_StatusCode StatusCode;
  OpcUa_DateTime SourceTimestamp;
  OpcUa_DateTime ServerTimestamp;
  OpcUa_UInt16 SourcePicoseconds;
  OpcUa_UInt16 ServerPicoseconds;
};

/// Initialises raw memory as a scalar Null.
void OpcUa_Variant_Initialize(OpcUa_Variant* variant);
/// Releases what the value owns (string, localized text, data value, array elements) and leaves a
/// scalar Null. Types held by `Pointer` are shared by copies, so whoever made them releases them.
void OpcUa_Variant_Clear(OpcUa_Variant* variant);

/// For OpcUa_String_StrnCpy: the whole source.
inline constexpr OpcUa_UInt32 OPCUA_STRING_LENDONTCARE = 0xFFFFFFFF;

/// Initialises raw memory as a null string.
void OpcUa_String_Initialize(OpcUa_String* string);
/// Releases the bytes if the string owns them and leaves a null string.
void OpcUa_String_Clear(OpcUa_String* string);
/// Makes `string` (initialised, holding nothing) refer to `length` bytes at `source`.
/// `length` 0 with `capacity` > 0 or OPCUA_STRING_LENDONTCARE: up to the NUL.
/// @param capacity size of the buffer at `source` when the string takes it over; else 0
/// @param copy the string gets its own NUL-terminated copy
/// @param free_on_clear OpcUa_String_Clear releases the bytes with OpcUa_Memory_Free
/// @return good; OpcUa_BadInvalidArgument for a null pointer; OpcUa_BadOutOfMemory
OpcUa_StatusCode OpcUa_String_AttachToString(const char* source, OpcUa_UInt32 length,
                                             OpcUa_UInt32 capacity, OpcUa_Boolean copy,
                                             OpcUa_Boolean free_on_clear, OpcUa_String* string);
/// Replaces `target` with a copy of at most `length` bytes of `source`; a null string stays null.
OpcUa_StatusCode OpcUa_String_StrnCpy(OpcUa_String* target, const OpcUa_String* source,
                                      OpcUa_UInt32 length);
/// The bytes, or null for a null string.
char* OpcUa_String_GetRawString(const OpcUa_String* string);
/// Length in bytes, 0 for a null string.
OpcUa_UInt32 OpcUa_String_StrLen(const OpcUa_String* string);

void OpcUa_LocalizedText_Initialize(OpcUa_LocalizedText* text);
void OpcUa_LocalizedText_Clear(OpcUa_LocalizedText* text);
/// Deep copy over whatever `target` (initialised) holds.
OpcUa_StatusCode OpcUa_LocalizedText_CopyTo(const OpcUa_LocalizedText* source,
                                            OpcUa_LocalizedText* target);

/// Memory for what a variant owns; null when there is none. Equivalent to `::operator new`, so that
/// a record made with `new` can be released here.
void* OpcUa_Memory_Alloc(std::size_t size);
/// Releases memory of OpcUa_Memory_Alloc; null is allowed.
void OpcUa_Memory_Free(void* memory);

inline constexpr OpcUa_UInt32 OPCUA_TRACE_LEVEL_WARNING = 0x10;
inline constexpr OpcUa_UInt32 OPCUA_TRACE_LEVEL_DEBUG = 0x20;

/// Writes one trace line: printf format and arguments, with the source position that it refers to.
void OpcUa_Trace_Imp(OpcUa_UInt32 level, const char* file, OpcUa_UInt32 line, const char* format,
                     ...) __attribute__((format(printf, 4, 5)));

}  // extern "C"
