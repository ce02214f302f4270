// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_port.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <new>
#include <tuple>
#include <utility>

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kReopenPause(200);

// 3GPP TS 27.007 clauses 8.5, 7.2 and 7.3: signal, registration, operator.
constexpr std::array kInquiries{"AT+CSQ\r", "AT+CREG?\r", "AT+COPS?\r"};
constexpr std::uint64_t kInquirer = 0;  // no client's number
constexpr milliseconds kInquiryTimeout(3000);
constexpr std::chrono::seconds kInquiryPause(10);

/// Calls a client's function; what it throws must not end the thread.
template <class Function>
void CallClient(int port, Function function) {
  try {
    function();
  } catch (const std::exception& error) {
    spdlog::error("modem port {}: a client's function failed: {}", port, error.what());
  }
}

int ReplyStatus(const ExchangeResult& result) {
  if (result.answered) return 0;
  return result.written ? kPortDriverNoAnswer : kPortDriverNotWritten;
}

/// As the client sees it.
bool Failed(const ModemRequest& request, const ExchangeResult& result) {
  if (!result.answered) return true;
  if (request.kind == RequestKind::kAnnouncement) return result.text != ">";
  const bool cut_list =
      request.kind == RequestKind::kList && result.final_kind == LineKind::kUnknown;
  return result.final_kind != LineKind::kOk && !cut_list;
}

}  // namespace

ModemPort::ModemPort(ModemTarget target, ScanLock& lock, PinMemory& pins)
    : target_(std::move(target)),
      lock_(lock),
      dialogue_(target_, loop_, status_, pins),
      thread_([this] { Run(); }) {}

ModemPort::~ModemPort() {
  loop_.Stop();
  thread_.join();
}

void ModemPort::WaitForFirstAttempt(SteadyTime deadline) {
  if (attempted_.try_acquire_until(deadline)) attempted_.release();
}

bool ModemPort::Register(void* context, PortDriverPriorityFunction priority,
                         PortDriverRequestFunction request) {
  if (!open_) return false;
  for (Client& client : clients_) {
    if (client.context != context) continue;
    client.priority = priority;
    client.request = request;
    return true;
  }
  clients_.push_back(
      {.id = next_id_++, .context = context, .priority = priority, .request = request});
  return true;
}

void ModemPort::Unregister(void* context) {
  std::erase_if(clients_, [context](const Client& client) { return client.context == context; });
}

bool ModemPort::Listen(void* context, PortDriverLineFunction hear) {
  bool found = false;
  for (Client& client : clients_) {
    if (client.context != context) continue;
    client.hear = hear;
    found = true;
  }
  return found;
}

void ModemPort::Run() {
  while (!loop_.stopped()) {
    KeepLine();
    TellNews();
    if (open_ && dialogue_.busy()) {
      AwaitModem();
      continue;
    }
    if (ServeOne()) continue;
    Inquire();
    const auto next_poll = steady_clock::now() + target_.poll;
    if (open_) {
      Idle(next_poll);
    } else {
      loop_.SleepUntil(next_poll);
    }
  }
  dialogue_.Detach();
}

void ModemPort::KeepLine() {
  if (open_ && !dialogue_.loss().empty()) {
    const std::string what = fmt::format("{} is lost: {}; waiting for it to come back",
                                         target_.Name(), dialogue_.loss());
    spdlog::warn("modem port {}: {}", target_.port, what);
    status_.Set(what);
    open_ = false;
    dialogue_.Detach();
  }
  if (!open_ && steady_clock::now() >= next_attempt_) TryToOpen();
}

void ModemPort::TryToOpen() {
  std::unique_ptr<SerialLine> line;
  try {
    line = OpenLine(target_, loop_);
    last_problem_.clear();
    open_ = true;
    spdlog::info("modem port {}: {} is open", target_.port, target_.Name());
    status_.Set(target_.Name() + " is open");
  } catch (const LineError& error) {
    next_attempt_ = steady_clock::now() + kReopenPause;
    status_.Set(error.what());
    if (std::exchange(last_problem_, error.what()) != error.what() && !loop_.stopped()) {
      spdlog::error("modem port {}: {}", target_.port, error.what());
    }
  }
  if (std::exchange(first_attempt_, false)) attempted_.release();
  if (line != nullptr) dialogue_.Attach(std::move(line));
}

void ModemPort::AwaitModem() {
  {
    const std::lock_guard guard(lock_);
    (void)Wishes();  // a client that still wants something keeps its late answer
  }
  Idle(steady_clock::now() + target_.poll);
}

void ModemPort::Idle(SteadyTime until) {
  try {
    dialogue_.Idle(until);
  } catch (const std::bad_alloc&) {
    spdlog::error("modem port {}: no memory for a late answer; it is lost", target_.port);
    dialogue_.LeavePrompt();  // the next exchange sets the modem up again
  }
}

void ModemPort::Inquire() {
  const bool is_free = open_ && !dialogue_.busy() &&
                       dialogue_.state() != ModemDialogue::State::kPrompt && !loop_.stopped();
  if (!is_free || !status_.wanted() || steady_clock::now() < next_inquiry_) return;
  const ModemRequest request(kInquiries.at(inquiry_));
  inquiry_ = (inquiry_ + 1) % kInquiries.size();
  const bool answered = dialogue_.Exchange(kInquirer, request, kInquiryTimeout).answered;
  if (inquiry_ == 0 || !answered) next_inquiry_ = steady_clock::now() + kInquiryPause;
}

bool ModemPort::ServeOne() {
  std::optional<Request> request;
  if (dialogue_.state() == ModemDialogue::State::kPrompt) {
    request = PromptOwnersRequest();
    if (!request) dialogue_.LeavePrompt();
  }
  if (!request) request = NextRequest();
  if (!request) return false;
  ExchangeResult result = Carry(*request);
  if (loop_.stopped()) return false;
  prompt_owner_ = request->client;
  const bool failed = Failed(request->request, result);
  const std::string answer = failed ? result.text : "";  // the client may write into it
  if (!HandOver(*request, result, failed) && failed &&
      request->request.kind == RequestKind::kText) {
    dialogue_.NoteGivenUp(answer);
  }
  return result.answered;
}

std::optional<ModemPort::Request> ModemPort::PromptOwnersRequest() {
  const std::lock_guard guard(lock_);
  const Client* const owner = Find(prompt_owner_);
  if (owner == nullptr) return std::nullopt;
  int priority = 0;
  CallClient(target_.port, [&] { priority = owner->priority(owner->context); });
  return priority > 0 ? AskForRequest(prompt_owner_) : std::nullopt;
}

std::optional<ModemPort::Request> ModemPort::NextRequest() {
  const std::lock_guard guard(lock_);
  const auto chosen = ChooseClient();
  return chosen ? AskForRequest(*chosen) : std::nullopt;
}

void ModemPort::TellNews() {
  const std::vector<ModemNewsItem> news = dialogue_.TakeNews();
  if (news.empty()) return;
  const std::lock_guard guard(lock_);
  for (const auto& [line, pdu] : news) {
    for (const std::uint64_t id : Ids()) {
      const Client* const client = Find(id);
      if (client == nullptr || client->hear == nullptr) continue;
      CallClient(target_.port, [&, &line = line, &pdu = pdu] {
        client->hear(client->context, line.c_str(), static_cast<int>(line.size()), pdu.c_str(),
                     static_cast<int>(pdu.size()));
      });
    }
  }
}

std::vector<std::uint64_t> ModemPort::Ids() const {
  std::vector<std::uint64_t> ids;
  for (const Client& client : clients_) ids.push_back(client.id);
  return ids;
}

std::vector<ModemPort::Wish> ModemPort::Wishes() {
  std::vector<Wish> wishes;
  const auto now = steady_clock::now();
  for (const std::uint64_t id : Ids()) {
    const Client* client = Find(id);
    if (client == nullptr) continue;
    int priority = 0;
    CallClient(target_.port, [&] { priority = client->priority(client->context); });
    client = Find(id);
    if (priority <= 0 || client == nullptr) continue;
    dialogue_.NoteWanted(id);
    if (now < client->not_before) continue;
    wishes.push_back({id, priority, client->served, client->failed});
  }
  return wishes;
}

std::optional<std::uint64_t> ModemPort::ChooseClient() {
  const std::vector<Wish> wishes = Wishes();
  std::uint64_t last_failure = 0;
  for (const Wish& wish : wishes) {
    if (wish.failed) last_failure = std::max(last_failure, wish.served);
  }
  // Clients that have had no turn since a failure come before the one that failed; otherwise the
  // highest priority wins, and among equals the client that has waited longest.
  const auto rank = [last_failure](const Wish& wish) {
    return std::tuple(wish.served < last_failure, wish.priority, ~wish.served);
  };
  const auto best = std::max_element(
      wishes.begin(), wishes.end(),
      [&rank](const Wish& one, const Wish& other) { return rank(one) < rank(other); });
  return best == wishes.end() ? std::nullopt : std::optional(best->client);
}

std::optional<ModemPort::Request> ModemPort::AskForRequest(std::uint64_t id) {
  Client* const client = Find(id);
  if (client == nullptr) return std::nullopt;
  client->served = ++turn_;
  std::array<char, kPortDriverRequestSize> buffer{};
  PortDriverRequestData data{};
  PortDriverReplyFunction on_reply = nullptr;
  int length = 0;
  CallClient(target_.port,
             [&] { length = client->request(client->context, buffer.data(), &data, &on_reply); });
  if (length <= 0) return std::nullopt;
  if (length > kPortDriverRequestSize) {
    spdlog::error("modem port {}: a client's request of {} bytes is too long", target_.port,
                  length);
    return std::nullopt;
  }
  const milliseconds timeout(std::max<std::int32_t>(data.timeout, 1));
  std::string octets(buffer.data(), static_cast<std::size_t>(length));
  return Request{id, ModemRequest(std::move(octets)), timeout, on_reply};
}

ExchangeResult ModemPort::Carry(const Request& request) {
  // A device that has gone away may return within the request's time-out.
  const auto deadline = steady_clock::now() + request.timeout;
  while (!open_ && !loop_.stopped() && steady_clock::now() < deadline) {
    loop_.SleepUntil(std::min(deadline, next_attempt_));
    KeepLine();
  }
  if (!open_) return NothingWritten();
  try {
    return dialogue_.Exchange(request.client, request.request, request.timeout);
  } catch (const std::bad_alloc&) {
    // A long list, perhaps; the next exchange sets the modem up again.
    spdlog::error("modem port {}: no memory for the answer; the exchange is lost", target_.port);
    return {};
  }
}

bool ModemPort::HandOver(const Request& request, ExchangeResult& result, bool failed) {
  const std::lock_guard guard(lock_);
  Client* const client = Find(request.client);
  if (client == nullptr) return true;
  NoteOutcome(*client, failed);
  if (request.on_reply == nullptr) return true;
  if (!result.answered) result.text.clear();
  int goes_on = 1;
  CallClient(target_.port, [&] {  // a std::string has a NUL after its text
    goes_on = request.on_reply(client->context, result.text.data(),
                               static_cast<int>(result.text.size()), ReplyStatus(result));
  });
  return goes_on != 0;
}

void ModemPort::NoteOutcome(Client& client, bool failed) const {
  const ModemTimes& times = target_.times;
  client.pause = failed ? std::clamp(2 * client.pause, times.first_pause, times.longest_pause)
                        : milliseconds(0);
  client.failed = failed;
  client.not_before = steady_clock::now() + client.pause;
}

ModemPort::Client* ModemPort::Find(std::uint64_t id) {
  const auto found = std::find_if(clients_.begin(), clients_.end(),
                                  [id](const Client& client) { return client.id == id; });
  return found == clients_.end() ? nullptr : &*found;
}

}  // namespace corvane
