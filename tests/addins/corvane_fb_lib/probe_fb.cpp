// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_fb_lib/probe_fb.h"

DEFINE_FUNCTION_BLOCK(ProbeFB, "PROBE")

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
