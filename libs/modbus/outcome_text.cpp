// SPDX-License-Identifier: MIT
#include "libs/modbus/outcome_text.h"

namespace modbus {
namespace {

struct Exception {
  int code;
  const char* name;
  const char* remedy;
};

constexpr Exception kExceptions[] = {
    {1, "ILLEGAL FUNCTION", "it does not have this function; correct Table or Write"},
    {2, "ILLEGAL DATA ADDRESS",
     "it does not have all of these addresses; correct Address (the first one is 0) or Count"},
    {3, "ILLEGAL DATA VALUE", "correct Count or Values"},
    {4, "SERVER DEVICE FAILURE", "look for the cause in the device"},
    {5, "ACKNOWLEDGE", "it takes some time over it; ask again later"},
    {6, "SERVER DEVICE BUSY", "ask again later, or less often"},
    {8, "MEMORY PARITY ERROR", "the device's memory is defective"},
    {10, "GATEWAY PATH UNAVAILABLE", "check the gateway's configuration, and Unit"},
    {11, "GATEWAY TARGET DEVICE FAILED TO RESPOND",
     "check Unit, and power and wiring of the device behind the gateway"},
};

std::string NameAndRemedy(int code) {
  if (code == 0) return "an exception that the protocol does not define";
  const std::string number = " (exception " + std::to_string(code) + "); ";
  for (const Exception& exception : kExceptions) {
    if (exception.code == code) return exception.name + number + exception.remedy;
  }
  return "not one of the protocol's reasons" + number + "look it up in the server's manual";
}

std::string Server(const Endpoint& endpoint) {
  return "Modbus server " + endpoint.Text();
}

std::string Unit(const Endpoint& endpoint, const Request& request) {
  return Server(endpoint) + ", unit " + std::to_string(request.unit) + ",";
}

std::string ToRequest(const Request& request) {
  return " to " + request.Text() + (request.write ? "; whether it has written is not known" : "") +
         "; ";
}

/// As `0.5 s`.
std::string InSeconds(std::chrono::milliseconds time) {
  std::string text = std::to_string(std::chrono::duration<double>(time).count());
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text + " s";
}

}  // namespace

std::string ExceptionText(const Endpoint& endpoint, const Request& request, int code) {
  return Unit(endpoint, request) + " refuses " + request.Text() + ": " + NameAndRemedy(code);
}

std::string TimedOutText(const Endpoint& endpoint, const Request& request,
                         std::chrono::milliseconds timeout) {
  return Unit(endpoint, request) + " does not answer within " + InSeconds(timeout) +
         ToRequest(request) + "check Unit and the device, or allow more time with Timeout";
}

std::string GarbageText(const Endpoint& endpoint, const Request& request) {
  return Unit(endpoint, request) + " sends something that is not the answer" + ToRequest(request) +
         "check that it is a Modbus TCP server";
}

std::string ClosedText(const Endpoint& endpoint, const Request& request) {
  return Unit(endpoint, request) + " closes the connection instead of answering" +
         ToRequest(request) + "check Unit, and how many connections the device allows";
}

std::string NotSentText(const Endpoint& endpoint, const Request& request,
                        std::chrono::milliseconds timeout) {
  return Server(endpoint) + " has kept other requests waiting, so " + request.Text() +
         " was not sent within " + InSeconds(timeout) +
         "; check the device, ask less often, or allow more time with Timeout";
}

std::string NotNamedText(const Endpoint& endpoint, std::chrono::milliseconds timeout) {
  return Server(endpoint) + ": the name was not resolved within " + InSeconds(timeout) +
         "; check the name service, or give an address as Server";
}

}  // namespace modbus
