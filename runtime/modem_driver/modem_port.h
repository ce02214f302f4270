// SPDX-License-Identifier: MIT
// One modem port: its thread chooses among the clients, carries out their exchanges and reopens the
// device after it has gone away.
// Threads: functions that need the scan lock, which also guards the clients, say so.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "corvane/modem_port_driver.h"
#include "runtime/corvane/scan_lock.h"
#include "runtime/modem_driver/modem_dialogue.h"
#include "runtime/modem_driver/modem_status.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

class ModemPort {
 public:
  /// Starts the thread, which opens the device at once.
  /// @param lock held while a function of a client is called
  /// @param pins the PINs that SIM cards have refused; must outlive this object
  ModemPort(ModemTarget target, ScanLock& lock, PinMemory& pins);
  ModemPort(const ModemPort&) = delete;
  ModemPort& operator=(const ModemPort&) = delete;
  /// Ends the thread and breaks off a running exchange. The caller must not hold the lock.
  ~ModemPort();

  /// Waits until the first attempt to open the device is over, but not beyond the deadline.
  void WaitForFirstAttempt(SteadyTime deadline);

  [[nodiscard]] int number() const { return target_.port; }
  /// The state in one line: the device's fault, or the last exchange.
  [[nodiscard]] std::string Status() const { return status_.Get(); }
  [[nodiscard]] ModemStatus& status() { return status_; }
  /// Refuses while the device is not open. A context that is already registered gets the new
  /// functions. Needs the lock.
  [[nodiscard]] bool Register(void* context, PortDriverPriorityFunction priority,
                              PortDriverRequestFunction request);
  /// Needs the lock.
  void Unregister(void* context);
  /// As ModemPortDriverListen; false: the context is not a client of this port. Needs the lock.
  bool Listen(void* context, PortDriverLineFunction hear);

 private:
  struct Client {
    std::uint64_t id;  // of the registration: a new block may have the address of an old one
    void* context;
    PortDriverPriorityFunction priority;
    PortDriverRequestFunction request;
    PortDriverLineFunction hear = nullptr;  // null: it does not listen
    std::uint64_t served = 0;               // turn in which it was last served
    bool failed = false;                    // whether its last exchange failed
    std::chrono::milliseconds pause{0};     // the last one; 0 after a success
    SteadyTime not_before{};                // while it pauses
  };
  /// A client that wants the port now.
  struct Wish {
    std::uint64_t client;
    int priority;
    std::uint64_t served;
    bool failed;  // its last exchange
  };
  /// What a client wants to send.
  struct Request {
    std::uint64_t client;
    ModemRequest request;
    std::chrono::milliseconds timeout;
    PortDriverReplyFunction on_reply;
  };

  void Run();
  void KeepLine();
  void TryToOpen();
  /// Carries out one client's exchange. False: no client wants anything, or there was no answer.
  bool ServeOne();
  /// The modem is still at work: waits a while for it, and asks no client for a request.
  void AwaitModem();
  /// Hands what the modem has said on its own to the clients that listen.
  void TellNews();
  /// Takes what the modem sends meanwhile, until there is news.
  void Idle(SteadyTime until);
  /// Asks the modem for signal and network, one command at a time, while somebody wants to know.
  void Inquire();
  /// An open prompt belongs to the client that asked for it, whatever the others want.
  [[nodiscard]] std::optional<Request> PromptOwnersRequest();
  [[nodiscard]] std::optional<Request> NextRequest();
  /// Of all clients. Their functions may register and withdraw clients, so a reference to a client
  /// does not survive a call.
  [[nodiscard]] std::vector<std::uint64_t> Ids() const;
  /// Asks all clients.
  [[nodiscard]] std::vector<Wish> Wishes();
  [[nodiscard]] std::optional<std::uint64_t> ChooseClient();
  [[nodiscard]] std::optional<Request> AskForRequest(std::uint64_t id);
  [[nodiscard]] ExchangeResult Carry(const Request& request);
  /// @return whether the client continues its task
  bool HandOver(const Request& request, ExchangeResult& result, bool failed);
  /// After a failed exchange the client pauses, longer each time.
  void NoteOutcome(Client& client, bool failed) const;
  [[nodiscard]] Client* Find(std::uint64_t id);

  const ModemTarget target_;
  ScanLock& lock_;
  WaitLoop loop_;
  ModemStatus status_;
  ModemDialogue dialogue_;
  std::vector<Client> clients_;  // guarded by lock_
  std::uint64_t next_id_ = 1;    // guarded by lock_
  std::uint64_t turn_ = 0;
  std::uint64_t prompt_owner_ = 0;  // client whose command opened the prompt
  SteadyTime next_attempt_;
  SteadyTime next_inquiry_;
  std::size_t inquiry_ = 0;   // index of the next command
  std::string last_problem_;  // why the device could not be opened, as logged
  std::atomic<bool> open_{false};
  std::binary_semaphore attempted_{0};
  bool first_attempt_ = true;
  std::thread thread_;
};

}  // namespace corvane
