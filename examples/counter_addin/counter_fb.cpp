// SPDX-License-Identifier: MIT
#include "counter_fb.h"

#include <limits>

DEFINE_FUNCTION_BLOCK(CounterFB, "COUNTER")

const FBMetaEntry* CounterFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {{"CU", "BOOL"}, {"R", "BOOL"},  {"PV", "DINT"},
                                         {"Q", "BOOL"},  {"CV", "DINT"}, {nullptr, nullptr}};
  return _entries;
}

void CounterFB::Execute() {
  const bool cu = GetBool("CU");
  const bool rising = cu && !last_cu_;
  last_cu_ = cu;
  int count = GetInt("CV");
  if (GetBool("R")) {
    count = 0;
  } else if (rising && count < std::numeric_limits<int>::max()) {
    ++count;
  }
  SetValue("CV", count);
  SetBool("Q", count >= GetInt("PV"));
}
