// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/quirks.h"

#include <array>

namespace modem_simulator {
namespace {

constexpr std::array kQuirks{
    QuirkRow{Quirk::kEchoAlways, "echo-always", "answers OK to ATE0 but keeps echoing"},
    QuirkRow{Quirk::kNoEcho, "no-echo", "never echoes"},
    QuirkRow{Quirk::kDoubleEcho, "double-echo", "echoes each command line twice"},
    QuirkRow{Quirk::kPromptBare, "prompt-bare", "the prompt is > alone"},
    QuirkRow{Quirk::kPromptCrLf, "prompt-crlf", "the prompt is > on a line of its own"},
    QuirkRow{Quirk::kNoPrompt, "no-prompt", "accepts a message without a prompt"},
    QuirkRow{Quirk::kNoBlank, "no-blank", "+CMGL:1,1,,39 and +CMS ERROR:500"},
    QuirkRow{Quirk::kAlphaField, "alpha-field", "+CMGL: 1,1,\"\",39"},
    QuirkRow{Quirk::kNoAlphaField, "no-alpha-field", "+CMGL: 1,1,39"},
    QuirkRow{Quirk::kNewestFirst, "newest-first", "lists the highest place first"},
    QuirkRow{Quirk::kIndexFromZero, "index-from-zero", "the first place is 0"},
    QuirkRow{Quirk::kDeleteEmptyOk, "delete-empty-ok", "deleting from an empty place is OK"},
    QuirkRow{Quirk::kFilledPdu, "filled-pdu", "a listed PDU is filled with FF to 176 octets"},
    QuirkRow{Quirk::kOkOnFailure, "ok-on-failure", "answers OK without +CMGS when sending failed"},
    QuirkRow{Quirk::kWideReference, "wide-reference", "received parts have 16-bit references"},
    QuirkRow{Quirk::kDeafWhileBusy, "deaf-while-busy", "loses what arrives while it is busy"}};

}  // namespace

std::span<const QuirkRow> QuirkTable() {
  return kQuirks;
}

std::optional<Quirk> FindQuirk(std::string_view name) {
  for (const QuirkRow& row : kQuirks) {
    if (row.name == name) return row.quirk;
  }
  return std::nullopt;
}

}  // namespace modem_simulator
