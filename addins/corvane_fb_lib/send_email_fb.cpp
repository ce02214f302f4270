// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/send_email_fb.h"

#include <boost/make_shared.hpp>
#include <chrono>
#include <csignal>
#include <new>

#include "addins/corvane_fb_lib/send_email_log.h"

DEFINE_FUNCTION_BLOCK(SendEmailFB, "SEND_EMAIL")

namespace {

constexpr std::chrono::milliseconds kPause{100};  // from one job to the next

/// Blocks that are being destroyed, in all Lua states of the process.
std::atomic<int> going{0};

/// Signals are for the host's threads; here one would end a wait and with it the dialogue.
void BlockSignals() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

}  // namespace

const FBMetaEntry* SendEmailFB::GetMetaTable() {
  static const FBMetaEntry _entries[] = {
      {"Port", "DINT"},
      {"Send", "BOOL"},
      {"Server", "STRING"},
      {"Login", "STRING"},
      {"Password", "STRING", FBDirection::kUnstated, nullptr, true},
      {"Sender", "STRING"},
      {"SenderName", "STRING"},
      {"SenderMail", "STRING"},
      {"Subject", "STRING"},
      {"Recipient", "STRING"},
      {"SecurityType", "DINT"},
      {"Message", "STRING"},
      {"Attachment", "STRING"},
      {"Sent", "BOOL"},
      {"Code", "DINT"},
      {"ErrStr", "STRING"},
      {nullptr, nullptr}};
  return _entries;
}

SendEmailFB::SendEmailFB(lua_State* L, const std::string& type_name)
    : BaseFB(L, type_name), name_(NameOfBlock(type_name, L)), worker(ThreadFunc, this) {}

SendEmailFB::~SendEmailFB() {
  ++going;
  {
    const std::lock_guard guard(pauseMutex);
    stopRequested = true;
  }
  stopped.notify_one();
  worker.join();
  LogDropped();
  --going;
}

template <class Describe>
void SendEmailFB::LogFailure(const ECSmtp& error, const Describe& describe) {
  logMsgLn(error.GetErrorText().c_str());
  try {
    logMsgLn(describe().c_str());
  } catch (const std::bad_alloc&) {
    // The text that programs and people look for is already logged.
  }
}

void SendEmailFB::Execute() {
  const tthread::lock_guard<tthread::mutex> guard(queueMutex);
  PublishResult();
  const bool send = GetBool("Send");
  if (send == lastSend) return;
  lastSend = send;
  if (!send) return;
  try {
    jobQueue.push_back(BuildJob());
    SetValue("ErrStr", "");
  } catch (const ECSmtp& error) {
    SetValue("ErrStr", error.GetErrorText());
    LogFailure(error, [&] {
      return DescribeRefusal(NameOfMail(name_, GetString("Subject"), GetString("Server"),
                                        static_cast<unsigned short>(GetInt("Port"))),
                             error);
    });
  }
}

void SendEmailFB::PublishResult() {
  // A pulse of one call; the next result waits until `Sent` has been seen FALSE.
  const bool pulse = !resultQueue.empty() && !GetBool("Sent");
  SetBool("Sent", pulse);
  if (!pulse) return;
  SetValue("Code", resultQueue.front());
  resultQueue.pop_front();
}

boost::shared_ptr<CSmtp> SendEmailFB::BuildJob() {
  auto job = boost::make_shared<CSmtp>();
  job->SetXPriority(XPRIORITY_NORMAL);
  job->SetXMailer("Corvane");
  job->SetSMTPServer(GetString("Server").c_str(), static_cast<unsigned short>(GetInt("Port")));
  const std::string attachment = GetString("Attachment");
  if (!attachment.empty()) job->AddAttachment(attachment.c_str());
  job->SetLogin(GetString("Login").c_str());
  job->SetPassword(GetString("Password").c_str());
  job->SetSenderName(GetString("SenderName").c_str());
  job->SetSenderMail(GetString("SenderMail").c_str());
  job->SetReplyTo(GetString("ReplyToMail").c_str());  // not declared; empty until a program sets it
  job->SetSubject(GetString("Subject").c_str());
  AddRecipients(*job);
  job->DelMsgLines();
  job->AddMsgLine(GetString("Message").c_str());
  return job;
}

void SendEmailFB::AddRecipients(CSmtp& job) {
  job.DelRecipients();
  std::string text = GetString("Recipient");  // strtok_r cuts it up in place
  char* rest = nullptr;
  for (const char* token = strtok_r(text.data(), " ;", &rest); token != nullptr;
       token = strtok_r(nullptr, " ;", &rest)) {
    job.AddRecipient(token, nullptr);
  }
}

void SendEmailFB::ThreadFunc(void* block) {
  BlockSignals();
  auto* self = static_cast<SendEmailFB*>(block);
  while (!self->stopRequested) {
    self->SendNext();
    self->Pause();
  }
}

void SendEmailFB::Pause() {
  std::unique_lock lock(pauseMutex);
  stopped.wait_for(lock, kPause, [this] { return stopRequested.load(); });
}

void SendEmailFB::SendNext() {
  const tthread::lock_guard<tthread::mutex> guard(queueMutex);
  if (jobQueue.empty() || going > 0) return;  // see the destructor
  const boost::shared_ptr<CSmtp> job = jobQueue.front();
  jobQueue.pop_front();
  try {
    job->Send();
    resultQueue.push_back(SMTP_NO_ERROR);
  } catch (const ECSmtp& error) {
    resultQueue.push_back(error.GetErrorNum());
    LogFailure(error, [&] { return DescribeFailure(name_, *job, error); });
  }
}

void SendEmailFB::LogDropped() const {
  if (jobQueue.empty()) return;
  try {
    logMsgLn(DescribeDropped(name_, jobQueue).c_str());
  } catch (const std::bad_alloc&) {
    logMsgLn("SEND_EMAIL is gone; messages were not sent");
  }
}
