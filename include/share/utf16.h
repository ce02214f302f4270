// SPDX-License-Identifier: MIT
// Text conversion for SMS user data. Implemented by corvaneshare.so; no shared state.
#pragma once

extern "C" {

/// Converts UTF-8 to UTF-16 with the high octet of each code unit first, as UCS-2 user data of
/// 3GPP TS 23.040 has it.
/// @param source `length` octets of UTF-8; may hold NUL characters
/// @param target room for `capacity` code units, that is twice as many octets
/// @param flags reserved, 0
/// @return how many octets the whole text needs, but never more than `2 * capacity`: a result of
///   that size means that the text fills the room or was cut to it, at a code unit. Below -1 if
///   `source` is not valid UTF-8 or an argument makes no sense; `target` then holds nothing useful.
///   (Never -1, since callers halve the result towards zero.)
int convert_utf8_to_utf16(const char* source, int length, unsigned char* target, int capacity,
                          int flags);
}
