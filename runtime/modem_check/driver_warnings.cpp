// SPDX-License-Identifier: MIT
#include "runtime/modem_check/driver_warnings.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>
#include <utility>

#include "runtime/corvane/state_folder.h"
#include "runtime/modem_driver/modem_dialogue.h"
#include "runtime/modem_driver/pin_memory.h"

namespace corvane::modem_check {
namespace {

class CollectingSink : public spdlog::sinks::base_sink<std::mutex> {
 public:
  std::vector<std::string> Take() { return std::exchange(texts_, {}); }

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    std::string text(message.payload.data(), message.payload.size());
    if (text.starts_with("modem port ")) text.erase(0, text.find(": ") + 2);
    if (text.starts_with("init: ")) text.erase(0, text.find(": ") + 2);
    texts_.push_back(std::move(text));
  }
  void flush_() override {}

 private:
  std::vector<std::string> texts_;
};

/// Takes the place of the log while it lives.
class CollectedLog {
 public:
  CollectedLog() : previous_(spdlog::default_logger()), sink_(std::make_shared<CollectingSink>()) {
    auto logger = std::make_shared<spdlog::logger>("check", sink_);
    logger->set_level(spdlog::level::warn);
    spdlog::set_default_logger(std::move(logger));
  }
  CollectedLog(const CollectedLog&) = delete;
  CollectedLog& operator=(const CollectedLog&) = delete;
  ~CollectedLog() { spdlog::set_default_logger(previous_); }

  [[nodiscard]] std::vector<std::string> Take() const { return sink_->Take(); }

 private:
  std::shared_ptr<spdlog::logger> previous_;
  std::shared_ptr<CollectingSink> sink_;
};

}  // namespace

std::vector<std::string> SetUpByDriver(ModemTalk& talk, WaitLoop& loop) {
  const CollectedLog log;
  PinMemory pins(StateFolder("check-modem"));
  ModemStatus status;
  ModemDialogue dialogue(talk.target(), loop, status, pins);
  dialogue.Attach(talk.Borrow());
  dialogue.Detach();
  return log.Take();
}

}  // namespace corvane::modem_check
