// SPDX-License-Identifier: MIT
// The block types that would reach modems, mail servers or processes, and their doubles.
// Threads: one, before tests run.
#pragma once

namespace corvane::program_test {

/// From now on, new Lua states have doubles instead of these block types, as far as add-ins have
/// registered them. Throws LuaError.
void InstallDoubles();

}  // namespace corvane::program_test
