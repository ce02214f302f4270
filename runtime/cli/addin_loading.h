// SPDX-License-Identifier: MIT
// The option `--addin` and what it means.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "runtime/corvane/addin.h"

namespace corvane::cli {

void AddAddinOption(CLI::App& command, std::vector<std::string>& files);

/// Loads the files in the order given; without any, the add-ins of this installation. Of those, one
/// that cannot be loaded is left out with a warning, except corvane_fb_lib.so. Throws AddinError.
[[nodiscard]] std::vector<std::unique_ptr<Addin>> LoadAddins(const std::vector<std::string>& files);

}  // namespace corvane::cli
