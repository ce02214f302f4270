// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_service.h"

#include <pthread.h>

#include <csignal>
#include <system_error>

#include "addins/corvane_mail/mail_worker.h"
#include "block/program_folder.h"
#include "corvane/program.h"
#include "share/log.h"

namespace corvane_mail {
namespace {

constexpr std::chrono::milliseconds kLongestEnd(950);

std::unique_ptr<MailService> the_service;

void RunWorker(const std::filesystem::path& folder, const std::shared_ptr<MailDesk>& desk) {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);  // signals are for the host's own threads
  pthread_setname_np(pthread_self(), "mail");
  MailWorker(folder, desk).Run();
  desk->SetEnded();
}

}  // namespace

MailService& MailService::The() {
  if (the_service == nullptr) the_service = std::make_unique<MailService>(ProgramFolder());
  return *the_service;
}

void MailService::BeginIfNeeded() {
  if (CorvaneStateFolder == nullptr) return;  // it cannot tell whether a program runs
  const std::filesystem::path folder = ProgramFolder();
  std::error_code ignored;
  if (!folder.empty() && std::filesystem::exists(folder / "messages.db", ignored)) {
    static_cast<void>(The());
  }
}

void MailService::End() {
  the_service.reset();
}

MailService::MailService(const std::filesystem::path& folder)
    : desk_(std::make_shared<MailDesk>()),
      worker_([folder, desk = desk_] { RunWorker(folder, desk); }) {}

MailService::~MailService() {
  desk_->Stop();
  if (desk_->WaitForEnd(kLongestEnd)) {
    worker_.join();
  } else {
    worker_.detach();
    logMsgLn("mail: the disk does not answer at the end of the program; what was stored is kept");
  }
}

}  // namespace corvane_mail
