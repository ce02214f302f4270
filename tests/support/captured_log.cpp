// SPDX-License-Identifier: MIT
#include "tests/support/captured_log.h"

#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

#include <mutex>

namespace test_support {
namespace {

class MemorySink : public spdlog::sinks::base_sink<std::mutex> {
 public:
  std::vector<std::string> Take() {
    const std::lock_guard guard(mutex_);
    return std::exchange(lines_, {});
  }

 protected:
  void sink_it_(const spdlog::details::log_msg& message) override {
    const auto level = spdlog::level::to_string_view(message.level);
    lines_.push_back(std::string(level.data(), level.size()) + " " +
                     std::string(message.payload.data(), message.payload.size()));
  }
  void flush_() override {}

 private:
  std::vector<std::string> lines_;
};

MemorySink& Sink() {
  static const auto sink = std::make_shared<MemorySink>();
  return *sink;
}

}  // namespace

void CaptureLog() {
  // The sink is static; the logger must not delete it.
  const std::shared_ptr<MemorySink> sink(&Sink(), [](MemorySink*) {});
  auto logger = std::make_shared<spdlog::logger>("test", sink);
  logger->set_level(spdlog::level::trace);
  spdlog::set_default_logger(logger);
}

std::vector<std::string> TakeLog() {
  return Sink().Take();
}

}  // namespace test_support
