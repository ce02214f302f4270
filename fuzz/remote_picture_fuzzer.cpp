// SPDX-License-Identifier: MIT
// What `corvane watch` makes of the messages of a program, one line of input each: a message that
// is not of the protocol is refused; what is shown fits on the screen, has no control characters,
// is limited in number, and never has a value that is marked as secret.
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "fuzz/require.h"
#include "runtime/cli/remote_picture.h"
#include "runtime/cli/watch_page.h"

using namespace corvane::cli;
using nlohmann::json;

namespace {

constexpr std::string_view kSecret = "kept-to-itself";

/// Which nodes are secret, and their values replaced.
class Secrets {
 public:
  void Hide(json& message) {
    if (message.value("type", json()) != "variables") return;
    for (const json& node : message.at("add")) {
      secret_[Id(node.at("id"))] = node.contains("secret") && node.at("secret") == true;
    }
    for (json& pair : message.at("set")) {
      if (secret_[Id(pair.at(0))]) pair.at(1) = kSecret;
    }
  }

 private:
  static int Id(const json& number) {
    return static_cast<int>(number.get_ref<const json::number_integer_t&>());
  }

  std::map<int, bool> secret_;
};

bool HasControls(const std::string& text) {
  for (const char octet : text) {
    const auto value = static_cast<unsigned char>(octet);
    if (value < 0x20 || value == 0x7F) return true;
  }
  return false;
}

void Check(const std::shared_ptr<WatchPicture>& picture) {
  constexpr TerminalScreen::Size kSize{.rows = 30, .columns = 80};
  Require(picture->modems.size() <= 64);
  Require(picture->output.size() <= WatchPage::kOutputLines);
  std::size_t variables = 0;
  for (const auto& block : picture->blocks) variables += block.variables.size();
  Require(variables <= RemotePicture::kMostNodes);
  WatchPage page({.program = "pump"});
  const auto lines = page.Lines(picture, kSize);
  Require(lines.size() <= static_cast<std::size_t>(kSize.rows));
  for (const ScreenLine& line : lines) Require(!HasControls(line.text));
  for (const auto& block : picture->blocks) {
    for (const auto& variable : block.variables) {
      Require(variable.value.find(kSecret) == std::string::npos);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view rest(reinterpret_cast<const char*>(data), size);
  if (rest.find(kSecret) != std::string_view::npos) return 0;
  RemotePicture picture("pump");
  Secrets secrets;
  RemotePicture::TimePoint now{std::chrono::seconds(1000)};
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size());
    json message = json::parse(rest.substr(0, end), nullptr, false);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    if (!message.is_object()) continue;  // the client ends the connection then
    try {
      secrets.Hide(message);
      picture.Take(message, now);
    } catch (const json::exception&) {
      secrets = Secrets();
      picture.Clear();  // as `corvane watch` connects again
    }
    now += std::chrono::milliseconds(200);
    Check(picture.Get(now));
  }
  return 0;
}
