// SPDX-License-Identifier: MIT
// CSmtp: one e-mail, and the SMTP session (RFC 5321) that hands it to a server over plain TCP with
// AUTH LOGIN. An object is filled, sent and destroyed. Failures are thrown as ECSmtp; progress()
// and ShownReply() have the details.
// Threads: one at a time; several objects may send at once.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "addins/corvane_fb_lib/csmtp_v1_8a/ecsmtp.h"

class AttachmentFile;

enum CSmptXPriority { XPRIORITY_HIGH = 2, XPRIORITY_NORMAL = 3, XPRIORITY_LOW = 4 };

struct Recipient {
  std::string Name;  ///< display name, may be empty
  std::string Mail;  ///< address
};

/// How far a dialogue has come.
struct SmtpProgress {
  /// Whether the server has the message.
  enum class Taken {
    kNo,
    kUnknown,  ///< its end was sent, or part of it; no answer has come
    kYes,      ///< the server has confirmed it
  };
  std::string step;  ///< what was done last, for people: "connecting", "after DATA"
  Taken taken = Taken::kNo;
  std::string reply;  ///< the server's last whole line as it came; empty: none yet
};

/// Texts are used as they are: no syntax is checked, and a line break in a header field or an
/// address is sent as such. A text ends at its first NUL.
class CSmtp {
 public:
  static constexpr std::size_t kBufferSize = 10240;        ///< of SendBuf and RecvBuf, in bytes
  static constexpr std::size_t kMaxAttachments = 5243903;  ///< bytes of all files together

  /// Reads the machine's name. Throws ECSmtp: 408 no memory, 107 no name.
  CSmtp();
  CSmtp(const CSmtp&) = delete;
  CSmtp& operator=(const CSmtp&) = delete;
  /// Leaves the connection of a failed Send open. Compatibility: a server that answers late then
  /// still finds its client, and keeps a message that it has read to the end.
  virtual ~CSmtp();

  /// Sends the message; returns when the server has taken it and has answered QUIT. It may be
  /// called again. Each reply, and each 10 KB sent, may take ten seconds. On an error the
  /// connection and the attachment that was being read stay open; see the destructor.
  /// Throws ECSmtp: every code that ecsmtp.h marks except 206 and 412.
  void Send();
  /// How far the last Send has come.
  [[nodiscard]] const SmtpProgress& progress() const { return progress_; }
  /// The server's last line for a log: one printable line, cut if it is long, without the login or
  /// any piece of the password, plain or as Base64. Empty: none yet.
  [[nodiscard]] std::string ShownReply() const;

  /// A connected, non-blocking socket, which the caller closes. See smtp_socket::Connect.
  int ConnectRemoteServer(const char* server, unsigned short port);
  /// Sends the text in SendBuf. Throws ECSmtp: 109, 402 (ten seconds for the whole text), 102.
  void SendData();
  /// Reads one line of a reply into RecvBuf, its line feed included. Throws ECSmtp: 109, 402 (ten
  /// seconds for the whole line), 103, 408 (kBufferSize bytes without a line feed; also at once
  /// when the connection has ended).
  void ReceiveData();
  /// The code of the reply line in RecvBuf; some other number if it begins without three digits.
  [[nodiscard]] int SmtpXYZdigits() const;
  /// The machine's name as the constructor read it. Throws ECSmtp: 408, 107.
  [[nodiscard]] const char* GetLocalHostName() const;
  /// Writes the message's header, which ends with its empty line, and a NUL to `header`, which has
  /// room for kBufferSize characters. Throws ECSmtp: 409 no valid time, 203 no recipient, 201 no
  /// sender, 408 no room; `header` is then as it was. Send has no such limit.
  void FormatHeader(char* header) const;

  // Setters: each replaces the whole text. No pointer may be null.
  void SetSenderMail(const char* mail) { mailFrom = mail; }
  void SetSenderName(const char* name) { senderName = name; }
  void SetSubject(const char* text) { subject = text; }
  void SetXMailer(const char* name) { xMailer = name; }
  void SetReplyTo(const char* mail) { replyTo = mail; }
  void SetLogin(const char* text) { login = text; }
  void SetPassword(const char* text) { password = text; }
  /// @param port 0: that of the service "mail", or 25 if it is unknown
  void SetSMTPServer(const char* server, unsigned short port);
  /// Any other value counts as normal.
  void SetXPriority(CSmptXPriority priority) { xPriority = priority; }

  [[nodiscard]] const char* GetSMTPServer() const { return smtpServer.c_str(); }
  [[nodiscard]] unsigned short GetSMTPPort() const { return smtpPort; }
  [[nodiscard]] const char* GetMailFrom() const { return mailFrom.c_str(); }
  [[nodiscard]] const char* GetSenderName() const { return senderName.c_str(); }
  [[nodiscard]] const char* GetSubject() const { return subject.c_str(); }
  [[nodiscard]] const char* GetXMailer() const { return xMailer.c_str(); }
  [[nodiscard]] const char* GetReplyTo() const { return replyTo.c_str(); }
  [[nodiscard]] CSmptXPriority GetXPriority() const { return xPriority; }
  [[nodiscard]] unsigned int GetRecipientCount() const { return Count(recipients); }
  [[nodiscard]] unsigned int GetCCRecipientCount() const { return Count(ccRecipients); }
  [[nodiscard]] unsigned int GetBCCRecipientCount() const { return Count(bccRecipients); }
  [[nodiscard]] unsigned int GetMsgLines() const { return Count(msgLines); }
  /// Throws std::out_of_range unless n is below GetMsgLines().
  [[nodiscard]] const char* GetMsgLineText(unsigned int n) const;

  // Each adds one at the end. `name` may be null: none. Throws ECSmtp 206 when `email` is null.
  void AddRecipient(const char* email, const char* name = nullptr);
  void AddCCRecipient(const char* email, const char* name = nullptr);
  void AddBCCRecipient(const char* email, const char* name = nullptr);
  /// One line of the body, without its line end. Line breaks in it are sent as they are.
  void AddMsgLine(const char* text) { msgLines.emplace_back(text); }
  /// A file, which Send opens. Compatibility: only a backslash separates folders, so the receiver
  /// sees the whole of a path with slashes.
  void AddAttachment(const char* path);

  void DelRecipients() { recipients.clear(); }
  void DelCCRecipients() { ccRecipients.clear(); }
  void DelBCCRecipients() { bccRecipients.clear(); }
  void DelMsgLines() { msgLines.clear(); }
  void DelAttachments() { attachments.clear(); }
  /// Removes line n, from 0. Compatibility: n = GetMsgLines() removes the last line, if any.
  /// Throws ECSmtp 412 when n is greater.
  void DelMsgLine(unsigned int n);
  /// Replaces line n, from 0; a null text does nothing.
  /// Throws std::out_of_range when n = GetMsgLines(), ECSmtp 412 when n is greater.
  void ModMsgLine(unsigned int n, const char* text);

 private:
  template <class List>
  static unsigned int Count(const List& list) {
    return static_cast<unsigned int>(list.size());
  }

  // The dialogue, stage by stage (csmtp_dialogue.cpp).
  void RunDialogue();
  void Enter(std::string step, SmtpProgress::Taken taken = SmtpProgress::Taken::kNo);
  void Greet();
  void Authenticate();
  void SendEnvelope();
  void SendRecipient(const Recipient& recipient);
  void SendMessage();
  void SendAttachments();
  void SendFile(AttachmentFile& file, std::size_t size);
  /// What comes next, which decides whether the system may wait for it to fill a packet.
  enum class Next { kReply, kMoreText };
  void SendText(std::string_view text, Next next = Next::kReply);
  void SendBuffer(Next next);
  int ReadReply();
  int ReadReplyOtherThan(int code);

  // The message's text (csmtp_message.cpp).
  [[nodiscard]] std::string ComposeHeader() const;
  [[nodiscard]] std::string ComposeFrom() const;
  [[nodiscard]] static std::string ComposeAttachmentHeader(const std::string& path);
  [[nodiscard]] static std::string ComposeClosingBoundary();

  std::string localHostName;
  std::string mailFrom, senderName, subject, xMailer, replyTo;
  std::string login, password;
  std::string smtpServer;
  unsigned short smtpPort = 0;
  CSmptXPriority xPriority = XPRIORITY_NORMAL;
  // Both have one extra place, for the NUL after a full buffer.
  std::unique_ptr<char[]> SendBuf;  // the text that SendData sends
  std::unique_ptr<char[]> RecvBuf;  // the last reply line
  int hSocket = 0;                  // of the current connection; 0 after success
  std::vector<Recipient> recipients, ccRecipients, bccRecipients;
  std::vector<std::string> attachments;
  std::vector<std::string> msgLines;
  SmtpProgress progress_;
};
