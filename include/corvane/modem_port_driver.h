// SPDX-License-Identifier: MIT
// The runtime's modem port driver, as its clients see it: it owns the modem's serial port and
// serialises the AT command exchanges of all of them. Implemented by corvane.so. What any driver
// owes its clients, ours or another runtime's, is written below the functions. Threads: the runtime
// calls a client's functions under the scan lock, so never while Lua runs.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {

/// What a request function says about the request that it wrote.
struct PortDriverRequestData {
  std::int32_t timeout;  ///< ms to wait for the answer, from the last octet sent or received
  /// The character that ends a one-line answer (13). 0: the answer has several lines, or no line
  /// end, like the prompt. A hint for drivers that do not know AT commands; ours does, and ignores
  /// it.
  char endChar;
};

/// Size of the buffer that the driver passes to a request function, in bytes.
enum { kPortDriverRequestSize = 1024 };

/// Receives an answer: `length` bytes at `reply`, which may be overwritten, followed by a NUL.
/// A negative `status` means that no valid answer came; there are no bytes then. Ours tells
/// kPortDriverNotWritten from kPortDriverNoAnswer; another driver may use any negative number.
/// Returns non-zero while the client's exchange goes on, that is, while its next request belongs
/// to this one. Our driver ignores it: it asks the priority function after each exchange
/// anyway, and only an open prompt keeps other clients out.
using PortDriverReplyFunction = int (*)(void* context, char* reply, int length, int status);

/// Our driver's negative statuses.
enum {
  kPortDriverNoAnswer = -1,  ///< what the modem did with the request is not known
  /// Not an octet of the request was written to the modem: it was missing, silent, or still at work
  /// on an earlier request; or its prompt was gone before the text.
  kPortDriverNotWritten = -2,
};

/// 0: nothing to send. Clients with higher numbers are served first. The driver may ask at any
/// time and as often as it likes; asking may begin a client's work.
using PortDriverPriorityFunction = int (*)(void* context);
/// Writes the next request to `buffer` (kPortDriverRequestSize bytes) and returns its length, 0 for
/// none. A request is a command line with its CR, or the text of a message with its Ctrl-Z. It sets
/// `on_reply`, to null if nobody wants the answer.
using PortDriverRequestFunction = int (*)(void* context, char* buffer,
                                          PortDriverRequestData* request,
                                          PortDriverReplyFunction* on_reply);

/// Makes `context` a client of a modem port.
/// @param port port number as configured in the runtime
/// @param extra may be null; not used
/// @return 0, or non-zero when the port is not configured or its device cannot be opened;
///   the client then tries again later
int ModemPortDriverRegister(int port, void* context, PortDriverPriorityFunction priority,
                            PortDriverRequestFunction request, void* extra);

/// Withdraws every registration of `context`; once this returns, the driver does not touch it. If
/// one of its exchanges is in progress, that continues on the wire, and the answer is dropped.
/// Unknown contexts are allowed. An addition of this runtime: an add-in refers to it weakly and
/// skips the call where a runtime does not have it.
void ModemPortDriverUnregister(void* context) __attribute__((weak));

/// Whether a port with this number is configured, even if its device is missing now: 1 or 0. An
/// addition of this runtime, to be referred to weakly.
int ModemPortDriverHasPort(int port) __attribute__((weak));

/// Receives a line that the modem sent on its own, without its line end and as the modem wrote it,
/// followed by a NUL:
/// - an announcement, "+CMTI: "SM",3" or "+CDSI: "SR",1": `pdu` is empty;
/// - "+CMT: ,30", "+CDS: 25" or "+CBM: 88" with the PDU on the line after it, in hexadecimal. A PDU
///   that breaks off for good (the line is lost, the modem restarts) is not handed over; one of
///   another length than announced is, since some modems count wrong;
/// - kPortDriverRestart, whatever the modem itself said: it has restarted, or its device was opened
///   (again), so it has the settings of its start. What it announced before may be lost.
using PortDriverLineFunction = void (*)(void* context, const char* line, int length,
                                        const char* pdu, int pdu_length);

/// What a listener hears when the modem has restarted.
inline constexpr char kPortDriverRestart[] = "RESTART";

/// Lets a registered client hear from now on what the modem says on its own. The driver calls
/// `hear` under the scan lock, between two exchanges, without waiting for its next poll, in the
/// order of the lines. It keeps 100 lines until it can call; more are dropped, with a warning in
/// the log. An addition of this runtime, to be referred to weakly.
/// @param hear null: the client no longer listens
/// @return 0, or non-zero if `context` is not a client of any port
int ModemPortDriverListen(void* context, PortDriverLineFunction hear) __attribute__((weak));
}

// What a driver owes its clients
//
// The answer that is handed over consists of the lines of the command's own answer ("+CMGL: ...",
// with the PDU line after each; "+CMGS: ...") and its final result. Its first octet is the first
// octet of the first such line: READ_SMS counts from there.
// - Each line ends with CR LF, whatever the modem sends, and there are no empty lines; only a
//   header without a PDU is followed by one.
// - No echo of the request, whether whole, doubled or damaged, and no echo of a PDU.
// - No unsolicited lines (RING, +CMTI, +CREG, ^RSSI ...; with +CMT, +CDS and +CBM the next line is
//   removed, too), wherever they arrive: before the answer, between header and PDU, in the middle
//   of a PDU.
// - The standard form: "+CMGL: 1,0,,30" and "+CMS ERROR: 500" with the space, also for a modem that
//   leaves it out; "+CMS ERROR: n" for "+CMGS ERROR: n"; "ERROR" for a manufacturer's own words.
//   The blocks find the place of a message and the number of an error by counting characters.
// - A PDU line ends where its PDU does. Some modems pad it with FF, and READ_SMS takes all of it
//   for text. Do not trust the announced length alone: some modems announce the same length for
//   every message.
// - The prompt is ">", as soon as that arrives; no line end follows it.
// - Complete, or nothing. An answer ends with its final result (OK, ERROR, "ERROR: ...",
//   +CMS ERROR, +CME ERROR), not with its first line and not with the time-out. If a list breaks
//   off, whole entries may be handed over; half a PDU must not be: the block would delete it as one
//   that cannot be decoded.
// - A message whose "+CMGS: n" has arrived is sent, even if its OK is lost: hand over both, or it
//   is sent again.
// - What arrives after the time-out is never taken for the answer to another request. The modem may
//   still be at work, and a command may abort that: wait, and answer the client's next attempt with
//   what arrives late. Above all, a text that the network confirms late must not go out again:
//   answer its next announcement with a prompt, and the text with the confirmation. When no answer
//   is expected any more, leave the prompt (ESC, CR), wait until the line is quiet, and make sure
//   with a command of the driver's own that modem and driver are in step.
// - Unsolicited lines are handed to the clients that listen, if the driver can do that, and to no
//   one else. A line may begin before, within or after an exchange; it is handed over as one line.
// - A restart of the modem (RDY, ^SYSSTART ...) ends the exchange: the modem has lost its settings
//   and the text.
//
// Turns among clients
// - One exchange at a time for the whole port. The client with the highest priority goes first;
//   among equals, the one that has waited longest.
// - An open prompt belongs to the client whose command opened it, whatever the priorities of the
//   others: its next request is the text. If it no longer wants to send anything, leave the prompt
//   with ESC and CR.
// - After an exchange without an answer, or one that the modem refused, every other client that
//   wants the port goes first, and the client pauses, for longer while it keeps failing (our pauses
//   double from 100 ms to 5 s, until an exchange succeeds). A READ_SMS or SEND_SMS that fails is
//   ready again at once, and would keep the port for ever.
// - In any of its functions, a client may register or withdraw itself and others.
