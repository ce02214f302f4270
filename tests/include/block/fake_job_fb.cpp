// SPDX-License-Identifier: MIT
#include "tests/include/block/fake_job_fb.h"

DEFINE_FUNCTION_BLOCK(QueueingJobFB, "FAKE_OUTBOX")
DEFINE_FUNCTION_BLOCK(SingleJobFB, "FAKE_PROCESS")

template <class T>
const FBMetaEntry* FakeJob<T>::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry _entries[] = {plcopen::kExecute,
                                         {"Port", "DINT", kInput, "modem"},
                                         {"Receiver", "STRING", kInput, "number"},
                                         {"Urgent", "BOOL", kInput, "goes first"},
                                         {"ValidFor", "LREAL", kInput, "s"},
                                         {"From", "DATE_AND_TIME", kInput, "when it begins"},
                                         plcopen::kBusy,
                                         plcopen::kDone,
                                         plcopen::kError,
                                         plcopen::kErrorId,
                                         plcopen::kErrorText,
                                         {"Stored", "BOOL", kOutput, "on the disk"},
                                         {"Sent", "DINT", kOutput, "Port of the job"},
                                         {"Took", "LREAL", kOutput, "s"},
                                         {"Told", "STRING", kOutput, "Receiver of the job"},
                                         {"Time", "DATE_AND_TIME", kOutput, "when it ended"},
                                         {nullptr, nullptr}};
  return _entries;
}

template class FakeJob<QueueingJobFB>;
template class FakeJob<SingleJobFB>;
