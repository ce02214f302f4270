// SPDX-License-Identifier: MIT
#include "runtime/program_test/real_declaration.h"

#include "runtime/corvane/declared_variables.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/st_library.h"

namespace corvane::program_test {
namespace {

struct Request {
  const std::string& type;
  std::vector<DeclaredVariable> variables;
};

int ReadDeclared(lua_State* L) {
  auto& request = *static_cast<Request*>(lua_touserdata(L, 1));
  request.variables = DeclaredVariables(L, request.type);
  return 0;
}

FBDirection DirectionOf(const VariableDescription* description) {
  if (description == nullptr) return FBDirection::kUnstated;
  if (description->direction == kSTInput) return FBDirection::kInput;
  return description->direction == kSTOutput ? FBDirection::kOutput : FBDirection::kUnstated;
}

}  // namespace

void DeclarationRows::Read(lua_State* L, const std::string& type) {
  Request request{type, {}};
  lua_pushcfunction(L, ReadDeclared);
  lua_pushlightuserdata(L, &request);
  ProtectedCall(L, 1, 0);
  rows_.clear();
  for (const DeclaredVariable& variable : request.variables) {
    FBMetaEntry row{texts_.emplace_back(variable.name).c_str(),
                    texts_.emplace_back(variable.type).c_str()};
    row.direction = DirectionOf(FindVariableDescription(type, variable.name));
    row.secret = variable.name == "Password" || variable.name == "Token";
    rows_.push_back(row);
  }
  rows_.push_back({nullptr, nullptr});
}

}  // namespace corvane::program_test
