// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/csmtp_v1_8a/ecsmtp.h"

namespace {

// Programs compare these texts, so their spelling stays.
const char* Text(std::int32_t code) {
  switch (code) {
    case SMTP_NO_ERROR: return "";
    case SMTP_ERR_NET_INIT: return "Unable to initialise winsock2";
    case SMTP_ERR_NET_VERSION: return "Wrong version of the winsock2";
    case SMTP_ERR_SEND: return "Function send() failed";
    case SMTP_ERR_RECV: return "Function recv() failed";
    case SMTP_ERR_CONNECT: return "Function connect failed";
    case SMTP_ERR_RESOLVE: return "Unable to determine remote server";
    case SMTP_ERR_SOCKET: return "Invalid winsock2 socket";
    case SMTP_ERR_HOSTNAME: return "Function hostname() failed";
    case SMTP_ERR_IOCTL: return "Function ioctlsocket() failed";
    case SMTP_ERR_BAD_IPV4: return "Improper IPv4 address";
    case SMTP_ERR_NO_HEADER: return "Undefined message header";
    case SMTP_ERR_NO_SENDER: return "Undefined mail sender";
    case SMTP_ERR_NO_SUBJECT: return "Undefined message subject";
    case SMTP_ERR_NO_RECIPIENTS: return "Undefined at least one reciepent";
    case SMTP_ERR_NO_LOGIN: return "Undefined user login";
    case SMTP_ERR_NO_PASSWORD: return "Undefined user password";
    case SMTP_ERR_NO_RECIPIENT_MAIL: return "Undefined recipent mail";
    case SMTP_ERR_CMD_MAIL_FROM: return "Server returned error after sending MAIL FROM";
    case SMTP_ERR_CMD_EHLO: return "Server returned error after sending EHLO";
    case SMTP_ERR_CMD_AUTH_LOGIN: return "Server returned error after sending AUTH LOGIN";
    case SMTP_ERR_CMD_DATA: return "Server returned error after sending DATA";
    case SMTP_ERR_CMD_QUIT: return "Server returned error after sending QUIT";
    case SMTP_ERR_CMD_RCPT_TO: return "Server returned error after sending RCPT TO";
    case SMTP_ERR_MSG_BODY: return "Error in message body";
    case SMTP_ERR_CONNECTION_CLOSED: return "Server has closed the connection";
    case SMTP_ERR_SERVER_NOT_READY: return "Server is not ready";
    case SMTP_ERR_SERVER_NOT_RESPONDING: return "Server not responding";
    case SMTP_ERR_FILE_NOT_EXIST: return "File not exist";
    case SMTP_ERR_MSG_TOO_BIG: return "Message is too big";
    case SMTP_ERR_BAD_LOGIN_PASS: return "Bad login or password";
    case SMTP_ERR_UNDEF_XYZ_RESPONSE: return "Undefined xyz SMTP response";
    case SMTP_ERR_LACK_OF_MEMORY: return "Lack of memory";
    case SMTP_ERR_TIME: return "time() error";
    case SMTP_ERR_RECVBUF_EMPTY: return "RecvBuf is empty";
    case SMTP_ERR_SENDBUF_EMPTY: return "SendBuf is empty";
    case SMTP_ERR_OUT_OF_MSG_RANGE: return "Specified line number is out of message size";
    // Compatibility: SELECT and CONNECT_TIMEOUT have no text of their own in ErrStr and the log.
    default: return "Undefined error id";
  }
}

}  // namespace

std::string ECSmtp::GetErrorText() const {
  return Text(code_);
}
