// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/sms_service.h"

#include <charconv>
#include <utility>

#include "addins/corvane_sms/program_folder.h"
#include "share/log.h"

namespace corvane_sms {
namespace {

/// A program that counts `Port` up must not make a client in each call.
constexpr std::size_t kMaxPorts = 64;

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

void SmsService::End() {
  the_service.reset();
}

bool SmsService::HasPort(int port) {
  return ModemPortDriverHasPort == nullptr || ModemPortDriverHasPort(port) != 0;
}

SmsService::Port::Port(int number, SmsService& service)
    : send(number, service.outbox_, service.store_, service.reports_),
      client(number, [&service](const Now& now) { service.Tick(now); }) {
  client.Add(send);
}

SmsService::SmsService(const std::filesystem::path& folder)
    : store_(folder),
      outbox_("sms", {[this] { return store_.NewId(); },
                      [this](std::vector<messages::Change> changes) {
                        return store_.Write(std::move(changes));
                      }}),
      reports_(outbox_) {}

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
  if (store_.TakeBegunAgain()) outbox_.WriteAgain();
  outbox_.Tick(now);
  UseLoadedPorts(now);
  RegisterPorts(now);
}

void SmsService::TakeContent(const Now& now) {
  auto content = store_.TakeContent();
  if (!content) return;
  outbox_.Load(std::move(content->waiting), std::move(content->keys), std::move(content->recent),
               content->limit_per_hour, now);
}

void SmsService::LogNotices() {
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
  const auto [place, added] = ports_.emplace(port, std::make_unique<Port>(port, *this));
  place->second->client.TryToRegister(now);
}

void SmsService::RegisterPorts(const Now& now) {
  for (const auto& [number, port] : ports_) port->client.TryToRegister(now);
}

}  // namespace corvane_sms
