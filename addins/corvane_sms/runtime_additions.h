// SPDX-License-Identifier: MIT
// What our runtime adds to the contract and this add-in uses where it is there.
#pragma once

extern "C" {
/// The folder in which the running program keeps data; null or empty: none.
const char* CorvaneStateFolder() __attribute__((weak));
}
