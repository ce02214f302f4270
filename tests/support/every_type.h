// SPDX-License-Identifier: MIT
// What every block type of every add-in does, whatever it is for. An add-in's test has one line for
// it, TEST_EVERY_TYPE, and a table of the variables that programs rely on.
#pragma once

#include <span>
#include <string>

#include "block/block_types.h"
#include "tests/support/lua_host.h"

namespace test_support {

/// What programs rely on: a type with its variables, as "Port:DINT Send:BOOL", in the order in
/// which hosts list them.
struct TypeRow {
  const char* name;
  const char* variables;
};

/// The runtime knows the types of these rows, in their order, and no others.
void ExpectRegistered(std::span<const TypeRow> rows);

// Each checks one type in the host, in which it is open.

void ExpectVariablesInOrder(LuaHost& host, const FBTypeEntry& type, std::span<const TypeRow> rows);
/// Strict blocks state direction and meaning of each variable, jobs have the common variables.
void ExpectCompleteDeclaration(const FBTypeEntry& type);
void ExpectInitialValuesReadBack(LuaHost& host, const FBTypeEntry& type);
/// Read as nil, or errors, as the type's kind of block has it.
void ExpectRuleOfUnknownNames(LuaHost& host, const FBTypeEntry& type);
void ExpectRuleOfOutputs(LuaHost& host, const FBTypeEntry& type);
void ExpectCallReturnsTheBlock(LuaHost& host, const FBTypeEntry& type);
/// Blocks are collected, `__gc` may be called by hand, and the rest lives until the host closes.
void ExpectOrderlyEnds(LuaHost& host, const FBTypeEntry& type);
void ExpectOtherObjectsRefused(LuaHost& host, const FBTypeEntry& type);

}  // namespace test_support

/// Defines the tests of an add-in's block types.
/// @param Fixture a LuaHost in which the types are open
/// @param types the add-in's table @param rows its TypeRows, one for each type
#define TEST_EVERY_TYPE(Fixture, types, rows)                                                   \
  class EveryType : public Fixture, public testing::WithParamInterface<FBTypeEntry> {};         \
  TEST_F(Fixture, RegistersTheTypesOfTheTableInItsOrder) {                                      \
    SCOPED_TRACE("the table " #rows);                                                           \
    test_support::ExpectRegistered(rows);                                                       \
  }                                                                                             \
  TEST_P(EveryType, MetadataListsItsVariablesInOrder) {                                         \
    SCOPED_TRACE("the table " #rows);                                                           \
    test_support::ExpectVariablesInOrder(*this, GetParam(), rows);                              \
  }                                                                                             \
  TEST_P(EveryType, StatesAllOfItsVariablesOrNone) {                                            \
    test_support::ExpectCompleteDeclaration(GetParam());                                        \
  }                                                                                             \
  TEST_P(EveryType, IsCreatedWithInitialValuesThatReadBackBeforeTheFirstCall) {                 \
    test_support::ExpectInitialValuesReadBack(*this, GetParam());                               \
  }                                                                                             \
  TEST_P(EveryType, ReadsUnknownNamesAsItsKindOfBlockDoes) {                                    \
    test_support::ExpectRuleOfUnknownNames(*this, GetParam());                                  \
  }                                                                                             \
  TEST_P(EveryType, KeepsItsOutputsToItselfIfItStatesThem) {                                    \
    test_support::ExpectRuleOfOutputs(*this, GetParam());                                       \
  }                                                                                             \
  TEST_P(EveryType, IsCalledAndReturnsItself) {                                                 \
    test_support::ExpectCallReturnsTheBlock(*this, GetParam());                                 \
  }                                                                                             \
  TEST_P(EveryType, IsCollectedAndLivesUntilTheHostCloses) {                                    \
    test_support::ExpectOrderlyEnds(*this, GetParam());                                         \
  }                                                                                             \
  TEST_P(EveryType, RefusesABlockOfAnotherType) {                                               \
    test_support::ExpectOtherObjectsRefused(*this, GetParam());                                 \
  }                                                                                             \
  INSTANTIATE_TEST_SUITE_P(Types, EveryType, testing::ValuesIn(types), [](const auto& tested) { \
    return std::string(tested.param.util().typeName);                                           \
  })
