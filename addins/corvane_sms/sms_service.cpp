// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/sms_service.h"

#include <charconv>
#include <utility>

#include "addins/corvane_sms/incoming_pdu.h"
#include "block/error_ids.h"
#include "block/program_folder.h"
#include "share/log.h"

namespace corvane_sms {
namespace {

/// A program that counts `Port` up must not make a client in each call.
constexpr std::size_t kMaxPorts = 64;

/// How long the driver may take to open a device before that is an error.
constexpr std::chrono::seconds kOpening(2);

std::unique_ptr<SmsService> the_service;

std::optional<int> PortOf(const std::string& route) {
  int port = 0;
  const auto result = std::from_chars(route.data(), route.data() + route.size(), port);
  return result.ec == std::errc() ? std::optional(port) : std::nullopt;
}

}  // namespace

SmsService& SmsService::The() {
  if (the_service == nullptr) the_service = std::make_unique<SmsService>(ProgramFolder());
  return *the_service;
}

SmsService* SmsService::Existing() {
  return the_service.get();
}

void SmsService::End() {
  the_service.reset();
}

bool SmsService::HasPort(int port) {
  return ModemPortDriverHasPort == nullptr || ModemPortDriverHasPort(port) != 0;
}

SmsService::Port::Port(int number, SmsService& service, const Now& now)
    : send(number, service.outbox_, service.store_, service.reports_),
      list(std::to_string(number), service.inbox_, service.HooksOfList(std::to_string(number))),
      client(number, [&service](const Now& at) { service.Tick(at); }),
      first_used(now.steady) {
  client.Add(send);
  client.Add(list);
}

SmsService::SmsService(const std::filesystem::path& folder)
    : store_(folder, "sms"),
      outbox_("sms", {[this] { return store_.NewId(); },
                      [this](const std::vector<messages::Change>& changes) {
                        return store_.Write(changes);
                      }}),
      inbox_(HooksOfInbox()),
      reports_(outbox_) {}

messages::InboxHooks SmsService::HooksOfInbox() {
  return {
      .new_id = [this] { return store_.NewId(); },
      .write =
          [this](const std::vector<messages::Change>& changes) { return store_.Write(changes); },
      .is_on_disk = [this](std::uint64_t sequence) { return store_.IsOnDisk(sequence); },
      .text = ReadParts,
      .same_content = HaveSameContent};
}

ListHooks SmsService::HooksOfList(const std::string& route) {
  return {.can_store = [this] { return inbox_.loaded() && store_.problem().empty(); },
          .awaits_reports = [this, route] { return reports_.Awaits(route); },
          .on_report = [this, route](const gsm::StatusReportPdu& report,
                                     const Now& now) { (void)reports_.Take(route, report, now); },
          .warn = [](const std::string& sentence) { logMsgLn(("SMS: " + sentence).c_str()); }};
}

SmsService::~SmsService() {
  const Now now = Now::Get();
  for (const auto& [number, port] : ports_) port->send.End(now);
  ports_.clear();
  const std::size_t waiting = outbox_.waiting();
  if (waiting == 0) return;
  const std::string problem = store_.problem();
  logMsg("SMS: the program ends while %zu %s; %s", waiting,
         waiting == 1 ? "message waits" : "messages wait",
         problem.empty() ? ("kept in " + store_.file().string()).c_str() : problem.c_str());
}

void SmsService::Tick(const Now& now) {
  TakeContent(now);
  if (!store_.problem().empty()) outbox_.GoOnWithoutStore();
  LogNotices();
  TakeRequests(now);
  if (store_.TakeBegunAgain()) {
    outbox_.WriteAgain();
    inbox_.WriteAgain(now);
  }
  outbox_.Tick(now);
  inbox_.Tick(now);
  for (const auto& [number, port] : ports_) port->list.Work(now);
  UseLoadedPorts(now);
  RegisterPorts(now);
}

void SmsService::TakeContent(const Now& now) {
  auto content = store_.TakeContent();
  if (!content) return;
  inbox_.Load(std::move(content->inbox), std::move(content->parts), std::move(content->held));
  outbox_.Load(std::move(content->waiting), std::move(content->keys), std::move(content->recent),
               content->limit_per_hour, now);
}

void SmsService::LogPlace() {
  if (logInfoLn == nullptr || !store_.TakeLoaded()) return;
  logInfoLn(("messages are kept in " + store_.file().string()).c_str());
}

void SmsService::LogNotices() {
  LogPlace();
  for (const std::string& notice : outbox_.TakeNotices()) logMsgLn(("SMS: " + notice).c_str());
  for (const std::string& notice : store_.TakeNotices()) logMsgLn(("SMS: " + notice).c_str());
  const std::string problem = store_.problem();
  if (!problem.empty() && !problem_logged_) logMsgLn(("SMS: " + problem).c_str());
  problem_logged_ = !problem.empty();
}

void SmsService::TakeRequests(const Now& now) {
  if (!outbox_.loaded()) return;
  for (const messages::Request& request : store_.TakeRequests()) outbox_.Apply(request, now);
}

void SmsService::UseLoadedPorts(const Now& now) {
  if (ports_loaded_ || !outbox_.loaded()) return;
  ports_loaded_ = true;
  for (const std::int64_t id : outbox_.TakeLoadedWithProgress()) reports_.ExpectLoaded(id);
  for (const std::string& route : outbox_.Routes()) {
    if (const auto port = PortOf(route)) UsePort(*port, now);
  }
}

void SmsService::UsePort(int port, const Now& now) {
  if (ports_.contains(port) || ports_.size() == kMaxPorts || !HasPort(port)) return;
  const auto [place, added] = ports_.emplace(port, std::make_unique<Port>(port, *this, now));
  place->second->client.TryToRegister(now);
}

void SmsService::RegisterPorts(const Now& now) {
  for (const auto& [number, port] : ports_) {
    port->client.TryToRegister(now);
    const bool had_time_to_open = now.steady - port->first_used > kOpening;
    if (port->client.device_is_there() || !had_time_to_open) continue;
    const std::string route = std::to_string(number);
    outbox_.NoteWhyItWaits(route, "the device of port " + route + " is not there", now);
  }
}

bool SmsService::AddInboxUser(int port, const Now& now) {
  UsePort(port, now);
  const auto found = ports_.find(port);
  if (found == ports_.end()) return false;
  ++found->second->inbox_users;
  found->second->list.SetEnabled(true, now);
  return true;
}

void SmsService::RemoveInboxUser(int port, const Now& now) {
  const auto found = ports_.find(port);
  if (found == ports_.end() || found->second->inbox_users == 0) return;
  if (--found->second->inbox_users == 0) found->second->list.SetEnabled(false, now);
}

ModemState SmsService::InboxState(int port, const Now& now) const {
  const auto found = ports_.find(port);
  if (found == ports_.end()) return {};
  ModemState state = found->second->list.state();
  if (std::string problem = store_.problem(); !problem.empty()) {
    return {state.valid, static_cast<int>(ErrorId::kStore), std::move(problem)};
  }
  const std::string where = "modem port " + std::to_string(port) + ": ";
  if (inbox_.IsFull(std::to_string(port))) {
    return {
        state.valid, static_cast<int>(ErrorId::kStore),
        where + std::to_string(inbox_.Waiting(std::to_string(port))) +
            " messages wait in the store. Let the program accept them; further ones stay in the "
            "modem."};
  }
  const bool had_time_to_open = now.steady - found->second->first_used > kOpening;
  if (had_time_to_open && !found->second->client.device_is_there()) {
    return {false, static_cast<int>(ErrorId::kModem),
            where +
                "the modem does not answer, since its device is not there or cannot be opened. "
                "Plug it in, or correct --modem; the log says more."};
  }
  return state;
}

}  // namespace corvane_sms
