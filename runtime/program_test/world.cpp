// SPDX-License-Identifier: MIT
#include "runtime/program_test/world.h"

#include "runtime/program_test/test_time.h"

namespace corvane::program_test {
namespace {

World* the_world = nullptr;

}  // namespace

World::World() {
  the_world = this;
}

World::~World() {
  the_world = nullptr;
}

World& World::The() {
  return *the_world;
}

void World::Advance(const CycleTime& time) {
  time_ = time;
  const auto now = ToSteady(time.clock);
  modem.Advance(now, time.clock);
  mail.Advance(now, time.clock);
  for (CycleClient* client : clients_) client->BeginCycle(time.clock);
}

void World::ProgramEnded() {
  modem.outbox().DropJobs();
  mail.outbox().DropJobs();
}

CycleClient::CycleClient() {
  World::The().clients_.push_back(this);
}

CycleClient::~CycleClient() {
  std::erase(World::The().clients_, this);
}

}  // namespace corvane::program_test
