// SPDX-License-Identifier: MIT
#include "tests/support/fake_modem_port.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>

namespace test_support {
namespace {

FakeModemPort* the_port = nullptr;

}  // namespace

FakeModemPort::FakeModemPort(int number) : number_(number) {
  if (the_port != nullptr) throw std::logic_error("there is already a fake modem port");
  the_port = this;
}

FakeModemPort::~FakeModemPort() {
  the_port = nullptr;
}

FakeModemPort* FakeModemPort::Current() {
  return the_port;
}

int FakeModemPort::Priority(std::size_t client) const {
  return clients_.at(client).priority(clients_.at(client).context);
}

ModemRequest FakeModemPort::AskRequest(std::size_t client) const {
  const Client& asked = clients_.at(client);
  // On the heap, so that the address sanitizer detects a byte too many.
  const auto buffer = std::make_unique<char[]>(kPortDriverRequestSize);
  PortDriverRequestData data{-1, kUnwrittenEndChar};
  ModemRequest request;
  request.on_reply = [](void*, char*, int, int) { return -1; };  // the client must overwrite it
  const int length = asked.request(asked.context, buffer.get(), &data, &request.on_reply);
  request.text.assign(buffer.get(), static_cast<std::size_t>(length));
  request.timeout = data.timeout;
  request.end_char = data.endChar;
  return request;
}

std::string FakeModemPort::Poll() {
  std::size_t chosen = 0;
  int highest = 0;
  for (std::size_t client = 0; client < clients_.size(); ++client) {
    const int priority = Priority(client);
    if (priority > highest) {
      highest = priority;
      chosen = client;
    }
  }
  open_client_ = nullptr;
  if (highest == 0) return {};
  open_ = AskRequest(chosen);
  if (!open_.text.empty()) open_client_ = clients_[chosen].context;
  return open_.text;
}

int FakeModemPort::Answer(std::string_view answer, int status) {
  if (open_client_ == nullptr) throw std::logic_error("no request is open");
  void* const client = std::exchange(open_client_, nullptr);
  const auto buffer = std::make_unique<char[]>(answer.size());
  std::copy(answer.begin(), answer.end(), buffer.get());
  return open_.on_reply(client, buffer.get(), static_cast<int>(answer.size()), status);
}

std::string FakeModemPort::Exchange(std::string_view answer) {
  std::string request = Poll();
  Answer(answer);
  return request;
}

std::vector<std::string> FakeModemPort::AnswerAll(std::string_view answer) {
  std::vector<std::string> requests;
  for (std::string request = Poll(); !request.empty(); request = Poll()) {
    requests.push_back(request);
    Answer(answer);
  }
  return requests;
}

void FakeModemPort::Say(const std::string& line, const std::string& pdu) const {
  for (std::size_t i = 0; i < clients_.size(); ++i) {  // a client may register another
    const Client client = clients_[i];
    if (client.hear == nullptr) continue;
    client.hear(client.context, line.c_str(), static_cast<int>(line.size()), pdu.c_str(),
                static_cast<int>(pdu.size()));
  }
}

}  // namespace test_support

int ModemPortDriverRegister(int port, void* context, PortDriverPriorityFunction priority,
                            PortDriverRequestFunction request, void* /*extra*/) {
  test_support::FakeModemPort* fake = test_support::FakeModemPort::Current();
  if (fake == nullptr) return 1;
  ++fake->attempts_;
  if (fake->refuse_ || port != fake->number_) return 1;
  for (const auto& client : fake->clients_) {
    if (client.context == context) return 0;
  }
  fake->clients_.push_back({context, priority, request, nullptr});
  return 0;
}
