// SPDX-License-Identifier: MIT
// The one exception type of the SMTP client: a code and nothing else.
#pragma once

#include <cstdint>
#include <string>

/// What went wrong. By hundreds: 1xx network and system calls, 2xx missing message data, 3xx a
/// command that the server refused, 4xx session and resources. The client raises those marked *;
/// the others are only in the catalogue.
enum CSmtpError : std::int32_t {
  SMTP_NO_ERROR = 0,
  SMTP_ERR_NET_INIT = 100,
  SMTP_ERR_NET_VERSION = 101,
  SMTP_ERR_SEND = 102,      ///< *
  SMTP_ERR_RECV = 103,      ///< * also the end of a connection that was refused
  SMTP_ERR_CONNECT = 104,   ///< *
  SMTP_ERR_RESOLVE = 105,   ///< * the server's name has no address
  SMTP_ERR_SOCKET = 106,    ///< * usually: no descriptor left
  SMTP_ERR_HOSTNAME = 107,  ///< *
  SMTP_ERR_IOCTL = 108,     ///< *
  SMTP_ERR_SELECT = 109,    ///< * a wait failed
  SMTP_ERR_BAD_IPV4 = 110,
  SMTP_ERR_NO_HEADER = 200,
  SMTP_ERR_NO_SENDER = 201,  ///< *
  SMTP_ERR_NO_SUBJECT = 202,
  SMTP_ERR_NO_RECIPIENTS = 203,      ///< *
  SMTP_ERR_NO_LOGIN = 204,           ///< *
  SMTP_ERR_NO_PASSWORD = 205,        ///< *
  SMTP_ERR_NO_RECIPIENT_MAIL = 206,  ///< *
  SMTP_ERR_CMD_MAIL_FROM = 300,      ///< *
  SMTP_ERR_CMD_EHLO = 301,           ///< *
  SMTP_ERR_CMD_AUTH_LOGIN = 302,     ///< *
  SMTP_ERR_CMD_DATA = 303,           ///< *
  SMTP_ERR_CMD_QUIT = 304,           ///< *
  SMTP_ERR_CMD_RCPT_TO = 305,        ///< *
  SMTP_ERR_MSG_BODY = 306,           ///< *
  SMTP_ERR_CONNECTION_CLOSED = 400,
  SMTP_ERR_SERVER_NOT_READY = 401,       ///< *
  SMTP_ERR_SERVER_NOT_RESPONDING = 402,  ///< * ten seconds without progress
  SMTP_ERR_CONNECT_TIMEOUT = 403,        ///< *
  SMTP_ERR_FILE_NOT_EXIST = 404,         ///< *
  SMTP_ERR_MSG_TOO_BIG = 405,            ///< *
  SMTP_ERR_BAD_LOGIN_PASS = 406,         ///< *
  SMTP_ERR_UNDEF_XYZ_RESPONSE = 407,     ///< *
  SMTP_ERR_LACK_OF_MEMORY = 408,  ///< * also a reply line without end, or a closed connection
  SMTP_ERR_TIME = 409,            ///< *
  SMTP_ERR_RECVBUF_EMPTY = 410,
  SMTP_ERR_SENDBUF_EMPTY = 411,
  SMTP_ERR_OUT_OF_MSG_RANGE = 412,  ///< *
};

/// Thrown by value by CSmtp. Not derived from std::exception: callers handle the code, and the
/// object holds nothing else.
class ECSmtp {
 public:
  /// Any number is accepted; one outside the catalogue has the text "Undefined error id".
  explicit ECSmtp(std::int32_t code) : code_(code) {}

  [[nodiscard]] std::int32_t GetErrorNum() const { return code_; }
  /// The text that programs see in `ErrStr` and in the log. Never fails.
  [[nodiscard]] std::string GetErrorText() const;

 private:
  std::int32_t code_;
};
