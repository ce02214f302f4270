// SPDX-License-Identifier: MIT
// Every elementary type of IEC 61131-3 with the built-in type that holds it (OPC 30000, table of
// elementary data types). Constant data.
#pragma once

#include <array>

#include "opcua/opcua.h"

namespace corvane {

struct ElementaryType {
  const char* name;
  OpcUa_BuiltInType built_in;
};

/// The first name of each built-in type is the one that messages use.
inline constexpr std::array kElementaryTypes{
    ElementaryType{"BOOL", OpcUaType_Boolean},
    ElementaryType{"SINT", OpcUaType_SByte},
    ElementaryType{"USINT", OpcUaType_Byte},
    ElementaryType{"INT", OpcUaType_Int16},
    ElementaryType{"UINT", OpcUaType_UInt16},
    ElementaryType{"DINT", OpcUaType_Int32},
    ElementaryType{"UDINT", OpcUaType_UInt32},
    ElementaryType{"LINT", OpcUaType_Int64},
    ElementaryType{"ULINT", OpcUaType_UInt64},
    ElementaryType{"REAL", OpcUaType_Float},
    ElementaryType{"LREAL", OpcUaType_Double},
    ElementaryType{"STRING", OpcUaType_String},
    ElementaryType{"DATE_AND_TIME", OpcUaType_DateTime},
    ElementaryType{"BYTE", OpcUaType_Byte},
    ElementaryType{"WORD", OpcUaType_UInt16},
    ElementaryType{"DWORD", OpcUaType_UInt32},
    ElementaryType{"LWORD", OpcUaType_UInt64},
    ElementaryType{"CHAR", OpcUaType_Byte},
    ElementaryType{"WCHAR", OpcUaType_UInt16},
    ElementaryType{"WSTRING", OpcUaType_String},
    ElementaryType{"TIME", OpcUaType_Double},
    ElementaryType{"LTIME", OpcUaType_Int64},
    ElementaryType{"DATE", OpcUaType_DateTime},
    ElementaryType{"LDATE", OpcUaType_DateTime},
    ElementaryType{"TIME_OF_DAY", OpcUaType_DateTime},
    ElementaryType{"TOD", OpcUaType_DateTime},
    ElementaryType{"LTOD", OpcUaType_DateTime},
    ElementaryType{"DT", OpcUaType_DateTime},
    ElementaryType{"LDT", OpcUaType_DateTime},
};

}  // namespace corvane
