// SPDX-License-Identifier: MIT
// Mails composed from any inputs: lines and header are those of a mail, and a reader of its own
// (RFC 2045 to 2047, 2231) finds in it what was put in. The fields of the input end with 0x1E; its
// first octet is flags.
#include <utf8.h>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"
#include "libs/mail/composer.h"

namespace {

constexpr std::string_view kEnd = "\r\n";

class Text : public mail::Octets {
 public:
  Text(std::string octets, std::size_t step) : octets_(std::move(octets)), step_(step) {}
  std::size_t Read(std::span<char> buffer) override {
    const std::size_t count = octets_.copy(buffer.data(), std::min(step_, buffer.size()), place_);
    place_ += count;
    return count;
  }

 private:
  std::string octets_;
  std::size_t step_;
  std::size_t place_ = 0;
};

/// Cuts off what is before the separator, or everything.
std::string_view Cut(std::string_view& text, std::string_view separator) {
  const std::size_t end = text.find(separator);
  const std::string_view before = text.substr(0, end);
  text.remove_prefix(end == text.npos ? text.size() : end + separator.size());
  return before;
}

std::string Valid(std::string_view text) {
  std::string valid;
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid), 0xFFFD);
  return valid;
}

std::string Replaced(std::string text, std::string_view what, std::string_view by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

/// What a header can show of a text.
std::string OnOneLine(std::string_view text) {
  std::string line = Replaced(Valid(text), kEnd, " ");
  std::replace_if(
      line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
  return line;
}

std::string WithMailLineEnds(std::string_view text) {
  return Replaced(Replaced(Valid(text), kEnd, "\n"), "\n", kEnd);
}

unsigned Digit(char c) {
  const std::size_t digit = std::string_view("0123456789ABCDEF").find(c);
  Require(digit != std::string_view::npos);
  return static_cast<unsigned>(digit);
}

/// Octets written as a sign and two hexadecimal digits; soft line breaks are left out.
std::string DecodeHexadecimal(std::string_view text, char sign) {
  std::string decoded;
  while (!text.empty()) {
    if (text.starts_with("=\r\n")) {
      text.remove_prefix(3);
    } else if (text.front() == sign) {
      Require(text.size() >= 3);
      decoded += static_cast<char>(Digit(text[1]) << 4 | Digit(text[2]));
      text.remove_prefix(3);
    } else {
      decoded += text.front();
      text.remove_prefix(1);
    }
  }
  return decoded;
}

std::string DecodeBase64(std::string_view text) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string decoded;
  std::uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const std::size_t digit = kDigits.find(c);
    if (digit == kDigits.npos) {
      Require(c == '=' || c == '\r' || c == '\n');
      continue;
    }
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    count += 6;
    if (count < 8) continue;
    count -= 8;
    decoded += static_cast<char>(bits >> count & 0xFF);
  }
  return decoded;
}

/// Encoded words one after another, joined; anything else is left as it is.
std::string DecodeWords(std::string_view text) {
  if (!text.starts_with("=?")) return std::string(text);
  std::string decoded;
  while (!text.empty()) {
    std::string_view word = Cut(text, " ");
    Require(word.size() <= 75 && word.starts_with("=?utf-8?") && word.ends_with("?="));
    const char form = word[8];
    word = word.substr(10, word.size() - 12);
    const std::string part = form == 'b'
                                 ? DecodeBase64(word)
                                 : DecodeHexadecimal(Replaced(std::string(word), "_", "=20"), '=');
    Require(utf8::is_valid(part.begin(), part.end()));  // no character is cut
    decoded += part;
  }
  return decoded;
}

struct Field {
  std::string name;
  std::string value;  // unfolded
};

/// A part with its header; of a multipart body, the parts.
struct Part {
  std::vector<Field> fields;
  std::string type;  // the first word of Content-Type
  std::string body;  // decoded
  std::vector<Part> parts;

  [[nodiscard]] std::string Value(std::string_view name) const {
    for (const Field& field : fields) {
      if (field.name == name) return field.value;
    }
    return {};
  }
};

std::vector<Field> ReadFields(std::string_view header) {
  std::vector<Field> fields;
  while (!header.empty()) {
    std::string_view line = Cut(header, kEnd);
    Require(!line.empty());
    if (line.front() == ' ') {
      Require(!fields.empty() && line.find_first_not_of(' ') != line.npos);
      fields.back().value += line;
      continue;
    }
    const std::string_view name = Cut(line, ":");
    if (!line.empty()) line.remove_prefix(1);
    fields.push_back({std::string(name), std::string(line)});
  }
  return fields;
}

Part ReadPart(std::string_view octets);

std::vector<Part> ReadParts(std::string_view body, std::string_view type_field) {
  constexpr std::string_view kParameter = "boundary=\"";
  type_field.remove_prefix(type_field.find(kParameter) + kParameter.size());
  const std::string delimiter = "\r\n--" + std::string(Cut(type_field, "\""));
  // The first delimiter's CRLF is the end of the header.
  const std::string all = "\r\n" + std::string(body);
  std::string_view rest = all;
  Require(Cut(rest, delimiter).empty());
  std::vector<Part> parts;
  while (!rest.starts_with("--")) {
    Require(rest.starts_with(kEnd));
    rest.remove_prefix(2);
    parts.push_back(ReadPart(Cut(rest, delimiter)));
    Require(!rest.empty());
  }
  Require(rest == "--\r\n");
  return parts;
}

Part ReadPart(std::string_view octets) {
  const std::size_t end = octets.find("\r\n\r\n");
  Require(end != octets.npos);
  Part part{ReadFields(octets.substr(0, end + 2)), {}, {}, {}};
  const std::string_view body = octets.substr(end + 4);
  const std::string type_field = part.Value("Content-Type");
  part.type = type_field.substr(0, type_field.find(';'));
  const std::string encoding = part.Value("Content-Transfer-Encoding");
  if (part.type.starts_with("multipart/")) {
    part.parts = ReadParts(body, type_field);
  } else if (encoding == "base64") {
    part.body = DecodeBase64(body);
  } else {
    Require(encoding == "7bit" || encoding == "quoted-printable");
    part.body = encoding == "7bit" ? std::string(body) : DecodeHexadecimal(body, '=');
  }
  return part;
}

/// The name of the file, from the parameter of RFC 2231 or from the plain one.
std::string FileName(std::string_view disposition) {
  std::string name;
  Cut(disposition, "; ");
  while (!disposition.empty()) {
    const std::string_view parameter = Cut(disposition, "=");
    Require(parameter.starts_with("filename"));
    if (parameter == "filename") {
      Require(name.empty());
      if (!disposition.starts_with('"')) return std::string(disposition);
      for (std::size_t i = 1; i + 1 < disposition.size(); ++i) {
        if (disposition[i] == '\\') ++i;
        name += disposition[i];
      }
      return name;
    }
    std::string_view section = Cut(disposition, "; ");
    if (name.empty()) Require(Cut(section, "''") == "utf-8");
    name += DecodeHexadecimal(section, '%');
  }
  return name;
}

void RequireLines(std::string_view octets) {
  Require(octets.ends_with(kEnd));
  while (!octets.empty()) {
    const std::string_view line = Cut(octets, kEnd);
    Require(line.size() <= 998 && line.find_first_of(std::string_view("\r\n\0", 3)) == line.npos);
    Require(!line.starts_with('.') && !line.starts_with("From "));
  }
}

std::string ReadAll(mail::Composer& composer, std::size_t step) {
  std::string octets;
  std::string buffer(step, '\0');
  while (const std::size_t count = composer.Read(buffer)) octets.append(buffer, 0, count);
  Require(!composer.failed() && octets.size() == composer.size());
  return octets;
}

void RequireHeader(const Part& mail, const mail::Message& message) {
  std::vector<std::string> expected = {"Date", "From", "To"};
  if (!message.cc.empty()) expected.emplace_back("Cc");
  for (const char* name :
       {"Subject", "Message-ID", "MIME-Version", "X-Mailer", "Auto-Submitted", "Content-Type"}) {
    expected.emplace_back(name);
  }
  if (mail.parts.empty()) expected.emplace_back("Content-Transfer-Encoding");
  std::vector<std::string> found;
  for (const Field& field : mail.fields) found.push_back(field.name);
  Require(found == expected);
  Require(DecodeWords(mail.Value("Subject")) == OnOneLine(message.subject));
}

/// @param alone whether the text is the whole mail, which ends with a line end
void RequireText(const Part& part, std::string_view type, std::string_view text, bool alone) {
  Require(part.type == type);
  const std::string expected = WithMailLineEnds(text);
  Require(part.body == expected || (alone && part.body == expected + std::string(kEnd)));
}

void RequireTexts(const Part& part, const mail::Message& message, bool alone) {
  if (message.html.empty()) return RequireText(part, "text/plain", message.text, alone);
  if (message.text.empty()) return RequireText(part, "text/html", message.html, alone);
  Require(part.type == "multipart/alternative" && part.parts.size() == 2);
  RequireText(part.parts[0], "text/plain", message.text, false);
  RequireText(part.parts[1], "text/html", message.html, false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(data, data + size);
  std::string_view rest = input;
  const unsigned flags = rest.empty() ? 0 : static_cast<unsigned char>(rest.front());
  rest.remove_prefix(std::min<std::size_t>(1, rest.size()));
  const auto next = [&rest] { return std::string(Cut(rest, "\x1E")); };

  mail::Message message;
  message.from = {next(), next()};
  message.to = {{next(), next()}, {"", next()}};
  if ((flags & 1) != 0) message.cc = {{next(), next()}};
  message.subject = next();
  message.text = next();
  message.html = next();
  message.message_id = next();
  message.date =
      std::chrono::sys_seconds(std::chrono::seconds((std::int64_t{1} << (flags & 31)) - 1));
  message.zone_minutes = static_cast<int>(flags) * 20 - 2000;
  const std::string file_name = next();
  const std::string file = next();
  const std::size_t step = 1 + (flags >> 3);
  if ((flags & 2) != 0) {
    message.attachments.push_back(
        {file_name, file.size(), [&] { return std::make_unique<Text>(file, step); }});
  }
  const bool smtputf8 = (flags & 4) != 0;
  mail::Composer composer(message, smtputf8);
  const std::string octets = ReadAll(composer, step);
  composer.Rewind();
  Require(ReadAll(composer, 4096) == octets);

  RequireLines(octets);
  if (!smtputf8) {
    Require(std::all_of(octets.begin(), octets.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x80; }));
  }
  const Part mail = ReadPart(octets);
  RequireHeader(mail, message);
  if (message.attachments.empty()) {
    RequireTexts(mail, message, true);
    return 0;
  }
  Require(mail.type == "multipart/mixed" && mail.parts.size() == 2);
  RequireTexts(mail.parts[0], message, false);
  Require(FileName(mail.parts[1].Value("Content-Disposition")) == OnOneLine(file_name));
  Require(mail.parts[1].body == file);
  return 0;
}
