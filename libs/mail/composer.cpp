// SPDX-License-Identifier: MIT
#include "libs/mail/composer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "libs/mail/header_field.h"
#include "libs/mail/header_text.h"
#include "libs/mail/media_type.h"
#include "libs/mail/text_part.h"

namespace mail {
namespace {

constexpr std::string_view kCrlf = "\r\n";

/// Date and time of RFC 5322 clause 3.3, within the years and zones that have this form.
std::string DateOf(std::chrono::sys_seconds date, int zone_minutes) {
  using namespace std::chrono;
  constexpr std::array kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  constexpr sys_seconds kFirst = sys_days{year{1900} / January / 2};
  constexpr sys_seconds kLast = sys_days{year{9999} / December / 30};
  constexpr int kMostMinutes = 24 * 60 - 1;
  const int zone = std::clamp(zone_minutes, -kMostMinutes, kMostMinutes);
  const sys_seconds local = std::clamp(date, kFirst, kLast) + minutes(zone);
  const auto day = floor<days>(local);
  const year_month_day calendar(day);
  const hh_mm_ss time(local - day);
  const int offset = std::abs(zone);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s, %u %s %d %02d:%02d:%02d %c%02d%02d",
                kDays.at(weekday(day).c_encoding()), static_cast<unsigned>(calendar.day()),
                kMonths.at(static_cast<unsigned>(calendar.month()) - 1),
                static_cast<int>(calendar.year()), static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                zone < 0 ? '-' : '+', offset / 60, offset % 60);
  return text.data();
}

/// What may be in a Message-ID: anything else is left out, so that it is one token.
std::string IdOf(std::string_view message_id) {
  constexpr std::size_t kLongest = 500;
  std::string id = "<";
  for (const char c : message_id.substr(0, kLongest)) {
    if (c > ' ' && c <= '~' && c != '<' && c != '>') id += c;
  }
  return id + '>';
}

/// "=_" is in no text of quoted-printable or base64 (RFC 2045 clause 6.7), and plain texts with it
/// in the place of a boundary are not left as they are.
std::string Boundary(char kind, std::string_view message_id) {
  constexpr std::size_t kLongest = 40;
  std::string boundary = {'=', '_', kind};
  for (const char c : message_id) {
    if (IsAlphanumeric(c) && boundary.size() < kLongest) boundary += c;
  }
  return boundary;
}

std::string AddressField(std::string_view name, const std::vector<Address>& addresses, bool utf8) {
  if (addresses.empty()) return {};
  HeaderField field(name);
  field.Addresses(addresses, utf8);
  return std::move(field).Take();
}

/// The header but for what describes the body.
std::string Head(const Message& message, bool utf8) {
  std::string head = SimpleField("Date", DateOf(message.date, message.zone_minutes));
  head += AddressField("From", {message.from}, utf8);
  head += AddressField("To", message.to, utf8);
  head += AddressField("Cc", message.cc, utf8);
  if (message.to.empty() && message.cc.empty())
    head += SimpleField("To", "undisclosed-recipients:;");
  head += AddressField("Reply-To", message.reply_to, utf8);
  HeaderField subject("Subject");
  subject.Text(OneLine(message.subject));
  head += std::move(subject).Take();
  head += SimpleField("Message-ID", IdOf(message.message_id));
  head += SimpleField("MIME-Version", "1.0");
  head += SimpleField("X-Mailer", "Corvane");
  head += SimpleField("Auto-Submitted", "auto-generated");
  return head;
}

std::string TypeField(std::string_view type, std::string_view parameter, std::string_view value) {
  HeaderField field("Content-Type");
  field.Token(type);
  field.Parameter(parameter, value);
  return std::move(field).Take();
}

/// A part with its header; CRLF at its end only where the text has one.
std::string TextPartOf(std::string_view type, std::string_view text) {
  TextPart part = EncodeText(text);
  return TypeField(type, "charset", part.charset) +
         SimpleField("Content-Transfer-Encoding", part.encoding) + std::string(kCrlf) + part.body;
}

std::string Delimiter(std::string_view boundary) {
  return "\r\n--" + std::string(boundary) + "\r\n";
}

std::string LastDelimiter(std::string_view boundary) {
  return "\r\n--" + std::string(boundary) + "--\r\n";
}

/// The text, the HTML text, or both as alternatives, the better one last (RFC 2046 clause 5.1.4).
std::string TextOf(const Message& message) {
  if (message.html.empty()) return TextPartOf("text/plain", message.text);
  if (message.text.empty()) return TextPartOf("text/html", message.html);
  const std::string boundary = Boundary('a', message.message_id);
  return TypeField("multipart/alternative", "boundary", boundary) + Delimiter(boundary) +
         TextPartOf("text/plain", message.text) + Delimiter(boundary) +
         TextPartOf("text/html", message.html) + LastDelimiter(boundary);
}

/// The name in ASCII for readers that do not know RFC 2231.
std::string Substitute(std::string_view name) {
  constexpr std::size_t kLongest = 60;
  std::string plain;
  for (; !name.empty(); name.remove_prefix(LengthOfCharacter(name))) {
    const char c = name.front();
    plain += IsAlphanumeric(c) || c == '-' || c == '.' ? c : '_';
  }
  // The end says what the file is.
  return plain.size() <= kLongest ? plain : plain.substr(plain.size() - kLongest);
}

/// The header of an attachment. Only one of its fields has the exact name: two forms of one
/// parameter in the same field are a defect to some readers.
std::string AttachmentHead(std::string_view file_name) {
  constexpr std::size_t kLongest = 60;
  const std::string name = OneLine(file_name);
  HeaderField type("Content-Type");
  type.Token(MediaTypeOf(name));
  HeaderField disposition("Content-Disposition");
  disposition.Token("attachment");
  const bool simple = IsPlain(name) && name.size() <= kLongest && name.find("=?") == name.npos;
  if (!name.empty()) {
    type.Parameter("name", simple ? name : Substitute(name));
    if (simple) {
      disposition.Parameter("filename", name);
    } else {
      disposition.ExtendedParameter("filename", name);
    }
  }
  return std::move(type).Take() + SimpleField("Content-Transfer-Encoding", "base64") +
         std::move(disposition).Take() + std::string(kCrlf);
}

}  // namespace

bool NeedsSmtpUtf8(const Message& message) {
  const auto any = [](const std::vector<Address>& addresses) {
    return std::any_of(addresses.begin(), addresses.end(),
                       [](const Address& address) { return NeedsSmtpUtf8(address); });
  };
  return NeedsSmtpUtf8(message.from) || any(message.to) || any(message.cc) || any(message.reply_to);
}

Composer::Composer(const Message& message, bool smtputf8) {
  pieces_.push_back({Head(message, smtputf8), {}});
  if (message.attachments.empty()) {
    std::string& text = pieces_.back().text;
    text += TextOf(message);
    if (!text.ends_with(kCrlf)) text += kCrlf;
  } else {
    AddAttachments(message);
  }
  for (const Piece& piece : pieces_) {
    size_ += piece.text.size() + Base64LinesSize(piece.attachment.size);
  }
}

void Composer::AddAttachments(const Message& message) {
  const std::string boundary = Boundary('m', message.message_id);
  pieces_.back().text +=
      TypeField("multipart/mixed", "boundary", boundary) + Delimiter(boundary) + TextOf(message);
  for (const Attachment& attachment : message.attachments) {
    pieces_.back().text += Delimiter(boundary) + AttachmentHead(attachment.name);
    pieces_.back().attachment = attachment;
    pieces_.emplace_back();
  }
  pieces_.back().text += LastDelimiter(boundary);
}

std::size_t Composer::Read(std::span<char> buffer) {
  std::size_t filled = 0;
  while (filled < buffer.size() && piece_ < pieces_.size() && !failed_) {
    std::size_t count = ReadText(buffer.subspan(filled));
    if (count == 0) count = ReadAttachment(buffer.subspan(filled));
    filled += count;
    if (count > 0 || failed_) continue;
    ++piece_;
    text_read_ = 0;
    encoder_.reset();
  }
  return filled;
}

std::size_t Composer::ReadText(std::span<char> buffer) {
  const std::string& text = pieces_[piece_].text;
  const std::size_t count = text.copy(buffer.data(), buffer.size(), text_read_);
  text_read_ += count;
  return count;
}

std::size_t Composer::ReadAttachment(std::span<char> buffer) {
  const Attachment& attachment = pieces_[piece_].attachment;
  if (attachment.size == 0) return 0;
  if (!encoder_) {
    encoder_ = std::make_unique<LineBase64>(attachment.open ? attachment.open() : nullptr,
                                            attachment.size);
  }
  const std::size_t count = encoder_->Read(buffer);
  failed_ = encoder_->failed();
  return count;
}

void Composer::Rewind() {
  piece_ = 0;
  text_read_ = 0;
  encoder_.reset();
  failed_ = false;
}

}  // namespace mail
