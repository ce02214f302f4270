// SPDX-License-Identifier: MIT
// compose_mail: reads a message in JSON from each line of the standard input, and writes for each
// its size announced, a line feed, the size read, a line feed, and its octets. For tests that read
// mail by other programs.
#include <cstdint>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>

#include "libs/mail/composer.h"
#include "libs/mail/text_check.h"

namespace {

using nlohmann::json;

class Text : public mail::Octets {
 public:
  explicit Text(std::string octets) : octets_(std::move(octets)) {}
  std::size_t Read(std::span<char> buffer) override {
    const std::size_t count = octets_.copy(buffer.data(), buffer.size(), place_);
    place_ += count;
    return count;
  }

 private:
  std::string octets_;
  std::size_t place_ = 0;
};

std::vector<mail::Address> Addresses(const json& list) {
  mail::AddressList read = mail::ReadAddresses(list.get<std::string>());
  if (!read.problem.empty()) throw std::runtime_error(read.problem);
  return std::move(read.addresses);
}

mail::Attachment AttachmentOf(const json& object) {
  // JSON knows no octets: a list of numbers.
  const auto numbers = object.at("octets").get<std::vector<unsigned char>>();
  std::string octets(numbers.begin(), numbers.end());
  return {object.at("name"), octets.size(), [octets] { return std::make_unique<Text>(octets); }};
}

mail::Message MessageOf(const json& object) {
  mail::Message message;
  message.from = Addresses(object.at("from")).at(0);
  message.to = Addresses(object.at("to"));
  message.cc = Addresses(object.value("cc", ""));
  message.reply_to = Addresses(object.value("reply_to", ""));
  message.subject = object.value("subject", "");
  message.text = object.value("text", "");
  message.html = object.value("html", "");
  message.message_id = object.at("message_id");
  message.date =
      std::chrono::sys_seconds(std::chrono::seconds(object.value("date", std::int64_t{0})));
  message.zone_minutes = object.value("zone_minutes", 0);
  for (const json& attachment : object.value("attachments", json::array())) {
    message.attachments.push_back(AttachmentOf(attachment));
  }
  return message;
}

}  // namespace

int main() try {
  for (std::string line; std::getline(std::cin, line);) {
    const json object = json::parse(line);
    mail::Composer composer(MessageOf(object), object.value("smtputf8", false));
    std::string octets;
    std::string buffer(4096, '\0');
    while (const std::size_t count = composer.Read(buffer)) octets.append(buffer, 0, count);
    std::cout << composer.size() << '\n' << octets.size() << '\n' << octets << std::flush;
  }
} catch (const std::exception& error) {
  std::cerr << "compose_mail: " << error.what() << '\n';
  return 1;
}
