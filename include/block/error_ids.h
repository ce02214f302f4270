// SPDX-License-Identifier: MIT
// The values of `ErrorId`, one catalogue for all blocks; docs/errors.md is checked against it.
// Constant data.
#pragma once

#include <cstdint>
#include <span>

/// What is wrong, as the output `ErrorId` says it. Blocks of other add-ins may use numbers from
/// 1000 on.
enum class ErrorId : std::int32_t {
  kNone = 0,
  kBadValue = 10,
  kReceiver = 11,
  kText = 12,
  kTooLong = 13,
  kNoSuchPort = 14,
  kAttachment = 15,
  kExpired = 20,
  kRefused = 21,
  kStore = 22,
  kUnknownEnd = 23,
  kModem = 24,
  kSim = 25,
  kRecipientsRefused = 30,
  kLoginRefused = 31,
  kCertificate = 32,
  kNotOffered = 33,
  kMailRefused = 34,
  kNotStarted = 40,
  kTimedOut = 41,
  kEndedBySignal = 42,
  kAborted = 43,
  kNoConnection = 50,
  kNoAnswer = 51,
  kModbusException = 52,
};

/// One error as people read it.
struct ErrorIdEntry {
  ErrorId id;
  const char* name;     ///< a few words
  const char* meaning;  ///< one sentence
  const char* remedy;   ///< what to do, one or two sentences
};

/// All errors, in the order of their numbers.
inline constexpr ErrorIdEntry kErrorIds[] = {
    {ErrorId::kBadValue, "bad value",
     "An input has a value that makes no sense, such as a negative or infinite duration.",
     "Correct the input that `ErrorText` names."},
    {ErrorId::kReceiver, "receiver",
     "The receiver is missing, or is not a telephone number or mail address.",
     "Correct the entry that `ErrorText` shows; nothing was queued for anybody."},
    {ErrorId::kText, "text", "The text is empty, or is not valid UTF-8.",
     "Give a text; `ErrorText` names the first octet that is not valid."},
    {ErrorId::kTooLong, "too long", "The text needs more parts than a message can have.",
     "Shorten the text, or send it in several messages."},
    {ErrorId::kNoSuchPort, "no such port", "The runtime has no modem with this port number.",
     "Start the runtime with `--modem PORT=DEVICE`, or correct `Port`."},
    {ErrorId::kAttachment, "attachment",
     "An attachment cannot be read, or together the attachments are too large.",
     "Check the path and the permissions that `ErrorText` names; 25 MB is the limit."},
    {ErrorId::kExpired, "expired", "The message could not be sent before `ValidFor` had passed.",
     "`ErrorText` names the last failure: remove its cause, or allow more time."},
    {ErrorId::kRefused, "refused",
     "The network or the modem refused this message for good, or it was cancelled.",
     "Look up the +CMS number that `ErrorText` names: an unassigned number, a barred service."},
    {ErrorId::kStore, "store",
     "The messages cannot be written to the disk: those to be sent go out from memory, received "
     "ones stay in the modem.",
     "Do what `ErrorText` says: free space, correct permissions, or end the other program."},
    {ErrorId::kUnknownEnd, "unknown end",
     "It is not known whether the message was sent, even after it was repeated once.",
     "Ask the receiver, or look at the provider's bill; then send it again if necessary."},
    {ErrorId::kModem, "modem",
     "The modem does not answer, refuses to list its messages, or does not delete them.",
     "Do what `ErrorText` says: check power, cable and `--modem`, or clear the modem's memory."},
    {ErrorId::kSim, "SIM", "The SIM is missing, locked or defective.",
     "Insert the SIM, or give its PIN in the setting `init` of `--modem`: "
     "`init=\"AT+CPIN=1234\"`."},
    {ErrorId::kRecipientsRefused, "recipients refused",
     "The mail server refused some or all recipients; the others have the mail.",
     "Correct the addresses in `Refused`, which has the server's replies."},
    {ErrorId::kLoginRefused, "login refused", "The mail server refused user and password.",
     "Correct `User`, `Password` or `Token`; the mail is kept and tried again."},
    {ErrorId::kCertificate, "certificate", "The mail server's certificate cannot be trusted.",
     "Check `Server`, the clock and `CaFile`; the mail is kept and tried again."},
    {ErrorId::kNotOffered, "not offered",
     "The mail server does not offer the security or the kind of login that is required.",
     "Check `Security` and `Port`; the mail is kept and tried again."},
    {ErrorId::kMailRefused, "mail refused", "The mail server refused the mail for good.",
     "Do what the server's words in `ErrorText` ask for, and send the mail again."},
    {ErrorId::kNotStarted, "not started", "The program could not be started.",
     "Correct what `ErrorText` names: the name, its permissions, or `Folder`."},
    {ErrorId::kTimedOut, "timed out", "The program ran longer than `Timeout` and was ended.",
     "Find out what it waits for, or allow more time."},
    {ErrorId::kEndedBySignal, "ended by a signal", "A signal ended the program.",
     "`Signal` is its number; the program's own output may tell why."},
    {ErrorId::kAborted, "aborted", "The program was ended because `Abort` was TRUE.",
     "None: the control program asked for it."},
    {ErrorId::kNoConnection, "no connection",
     "The Modbus server could not be reached in time; nothing was sent to it.",
     "Check `Server`, `Port`, the cable and the server's power; trying again does no harm."},
    {ErrorId::kNoAnswer, "no answer",
     "The Modbus server did not answer in time, or not as the protocol demands; whether it has "
     "written is unknown.",
     "Check `Unit` and the load of the server, or allow more time with `Timeout`."},
    {ErrorId::kModbusException, "Modbus exception",
     "The Modbus server refused the request with an exception, which `ErrorText` names.",
     "Correct `Table`, `Address`, `Count` or `Unit` with the help of the server's manual."},
};

/// The row of an error; null for 0 and for a number that the catalogue does not have.
constexpr const ErrorIdEntry* FindErrorId(ErrorId id) {
  for (const ErrorIdEntry& entry : kErrorIds) {
    if (entry.id == id) return &entry;
  }
  return nullptr;
}
