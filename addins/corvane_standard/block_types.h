// SPDX-License-Identifier: MIT
// The block types of this add-in. Registration, the tests and the checks of the pages read this
// table: a new block is a new row at its end.
#pragma once

#include "addins/corvane_standard/bistables.h"
#include "addins/corvane_standard/counters.h"
#include "addins/corvane_standard/edges.h"
#include "addins/corvane_standard/hysteresis_fb.h"
#include "addins/corvane_standard/process_fb.h"
#include "addins/corvane_standard/schedule_fb.h"
#include "addins/corvane_standard/timers.h"
#include "block/block_types.h"

namespace corvane_standard {

/// In the order in which hosts list them.
inline constexpr FBTypeEntry kBlockTypes[] = {
    BLOCK_TYPE(TonFB),         // TON
    BLOCK_TYPE(TofFB),         // TOF
    BLOCK_TYPE(TpFB),          // TP
    BLOCK_TYPE(RTrigFB),       // R_TRIG
    BLOCK_TYPE(FTrigFB),       // F_TRIG
    BLOCK_TYPE(SrFB),          // SR
    BLOCK_TYPE(RsFB),          // RS
    BLOCK_TYPE(CtuFB),         // CTU
    BLOCK_TYPE(CtdFB),         // CTD
    BLOCK_TYPE(CtudFB),        // CTUD
    BLOCK_TYPE(HysteresisFB),  // HYSTERESIS
    BLOCK_TYPE(ScheduleFB),    // SCHEDULE
    BLOCK_TYPE(ProcessFB),     // PROCESS
};

}  // namespace corvane_standard
