// SPDX-License-Identifier: MIT
// store_child FOLDER: writes one batch after the other to the store in the folder, and the number
// of each one that is on the disk to standard output, until it is killed.
#include <unistd.h>

#include <string>

#include "tests/libs/messages/batches.h"
#include "tests/libs/messages/store_tools.h"

int main(int count, char** words) {
  if (count != 2) return 2;
  messages::Store store(words[1], "sms");
  messages::Batches batches(store, messages::LoadedFrom(store).waiting);
  for (;;) {
    const auto sequence = batches.WriteNext();
    while (!store.IsOnDisk(sequence)) std::this_thread::yield();
    const std::string line = std::to_string(batches.number()) + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 1;
  }
}
