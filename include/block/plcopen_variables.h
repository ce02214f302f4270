// SPDX-License-Identifier: MIT
// The variables that job blocks and continuous blocks have in common, as rows for their
// declaration tables. Constant data.
#pragma once

#include "block/declaration.h"

namespace plcopen {

inline constexpr FBMetaEntry kExecute{"Execute", "BOOL", FBDirection::kInput,
                                      "a rising edge starts a job with the inputs of this call"};
inline constexpr FBMetaEntry kBusy{"Busy", "BOOL", FBDirection::kOutput, "the job is under way"};
inline constexpr FBMetaEntry kDone{"Done", "BOOL", FBDirection::kOutput, "the job has succeeded"};

inline constexpr FBMetaEntry kError{"Error", "BOOL", FBDirection::kOutput,
                                    "something is wrong; see ErrorId and ErrorText"};
inline constexpr FBMetaEntry kErrorId{"ErrorId", "DINT", FBDirection::kOutput,
                                      "number of the error, 0: none"};
inline constexpr FBMetaEntry kErrorText{"ErrorText", "STRING", FBDirection::kOutput,
                                        "what is wrong, where, and what to do"};

}  // namespace plcopen
