// SPDX-License-Identifier: MIT
// The add-in as its host sees it: the types that it registers, and their metadata.
#include "addins/corvane_standard/corvane_standard.h"

#include "addins/corvane_standard/block_types.h"
#include "tests/addins/corvane_standard/standard_block_test.h"
#include "tests/support/every_type.h"

namespace {

class StandardAddin : public StandardBlockTest {};

/// What programs rely on.
constexpr test_support::TypeRow kTypes[] = {
    {"TON", "IN:BOOL PT:LREAL Q:BOOL ET:LREAL"},
    {"TOF", "IN:BOOL PT:LREAL Q:BOOL ET:LREAL"},
    {"TP", "IN:BOOL PT:LREAL Q:BOOL ET:LREAL"},
    {"R_TRIG", "CLK:BOOL Q:BOOL"},
    {"F_TRIG", "CLK:BOOL Q:BOOL"},
    {"SR", "S1:BOOL R:BOOL Q1:BOOL"},
    {"RS", "S:BOOL R1:BOOL Q1:BOOL"},
    {"CTU", "CU:BOOL R:BOOL PV:DINT Q:BOOL CV:DINT"},
    {"CTD", "CD:BOOL LD:BOOL PV:DINT Q:BOOL CV:DINT"},
    {"CTUD", "CU:BOOL CD:BOOL R:BOOL LD:BOOL PV:DINT QU:BOOL QD:BOOL CV:DINT"},
    {"HYSTERESIS", "IN:LREAL High:LREAL Low:LREAL Q:BOOL"},
    {"SCHEDULE", "At:STRING Enable:BOOL Q:BOOL Next:DATE_AND_TIME"},
    {"PROCESS",
     "Execute:BOOL Command:STRING Program:STRING Arguments:STRING Input:STRING Folder:STRING "
     "Timeout:LREAL Abort:BOOL MaxOutput:DINT Busy:BOOL Done:BOOL Error:BOOL ErrorId:DINT "
     "ErrorText:STRING Output:STRING ErrorOutput:STRING Truncated:BOOL ExitCode:DINT Signal:DINT "
     "Pid:DINT Duration:LREAL"},
};

TEST_EVERY_TYPE(StandardAddin, corvane_standard::kBlockTypes, kTypes);

}  // namespace
