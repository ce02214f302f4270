// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/modbus_service.h"

#include <pthread.h>

#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include "addins/corvane_modbus/server_worker.h"

namespace corvane_modbus {

ModbusService& ModbusService::The() {
  static auto* const service = new ModbusService;
  return *service;
}

/// Starts a thread that serves the queue until it is to end. @return false: there is none
bool ModbusService::StartWorker(const std::shared_ptr<ServerQueue>& queue) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // signals are for the host's own threads
  bool started = true;
  try {
    std::thread([this, queue] {
      pthread_setname_np(pthread_self(), "modbus");
      ServerWorker(*this, *queue).Run();
      const std::scoped_lock lock(mutex_);
      --workers_;
      worker_ended_.notify_all();
    }).detach();
    ++workers_;
  } catch (const std::system_error&) {
    started = false;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

ModbusService::Submitted ModbusService::Submit(const Endpoint& endpoint,
                                               std::shared_ptr<Exchange> exchange) {
  const std::unique_lock lock(mutex_, std::try_to_lock);
  if (!lock.owns_lock()) return Submitted::kLater;
  auto found = queues_.find(endpoint);
  if (found == queues_.end()) {
    if (queues_.size() >= kMostServers) return Submitted::kTooMany;
    found = queues_.emplace(endpoint, std::make_shared<ServerQueue>(endpoint)).first;
    if (!StartWorker(found->second)) {
      queues_.erase(found);
      return Submitted::kNoThread;
    }
  }
  found->second->waiting.push_back(std::move(exchange));
  found->second->changed.notify_one();
  return Submitted::kYes;
}

void ModbusService::KeepConnectionsFor(std::chrono::milliseconds idle_time) {
  const std::scoped_lock lock(mutex_);
  idle_time_ = idle_time;
}

void ModbusService::End(std::chrono::milliseconds longest) {
  std::unique_lock lock(mutex_);
  for (const auto& [endpoint, queue] : queues_) {
    queue->stop.Stop();
    queue->changed.notify_one();
  }
  queues_.clear();
  worker_ended_.wait_for(lock, longest, [this] { return workers_ == 0; });
}

std::shared_ptr<Exchange> ModbusService::Next(ServerQueue& queue) {
  std::unique_lock lock(mutex_);
  queue.changed.wait_for(lock, idle_time_,
                         [&] { return queue.stop.stopped() || !queue.waiting.empty(); });
  if (!queue.stop.stopped() && !queue.waiting.empty()) {
    auto next = std::move(queue.waiting.front());
    queue.waiting.pop_front();
    return next;
  }
  // Under the same lock, so that no request can be queued for a worker that ends.
  if (!queue.stop.stopped()) queues_.erase(queue.endpoint);
  return nullptr;
}

Exchanges ModbusService::TakeWaiting(ServerQueue& queue) {
  const std::scoped_lock lock(mutex_);
  return std::exchange(queue.waiting, {});
}

}  // namespace corvane_modbus
