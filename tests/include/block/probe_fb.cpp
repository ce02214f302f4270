// SPDX-License-Identifier: MIT
#include "tests/include/block/probe_fb.h"

DEFINE_FUNCTION_BLOCK(ProbeFB, "PROBE")
DEFINE_FUNCTION_BLOCK(OtherFB, "OTHER")

ProbeFB::ProbeFB(lua_State* L, const std::string& type_name) : BaseFB(L, type_name) {
  if (fail_construction) throw std::runtime_error("no room for a probe");
  ++alive;
  last = this;
}

ProbeFB::~ProbeFB() {
  --alive;
}

const FBMetaEntry* ProbeFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Bool", "BOOL"},   {"SInt", "SINT"},  {"USInt", "USINT"}, {"Int", "INT"},
      {"UInt", "UINT"},   {"DInt", "DINT"},  {"UDInt", "UDINT"}, {"LInt", "LINT"},
      {"ULInt", "ULINT"}, {"Real", "REAL"},  {"LReal", "LREAL"}, {"String", "STRING"},
      {"Time", "DT"},     {nullptr, nullptr}};
  return _entries;
}

void ProbeFB::Execute() {
  const std::string message = GetString("Throw");
  if (!message.empty()) throw std::runtime_error(message);
}

const FBMetaEntry* OtherFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {{"Only", "DINT"}, {nullptr, nullptr}};
  return _entries;
}
