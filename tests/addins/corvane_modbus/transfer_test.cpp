// SPDX-License-Identifier: MIT
// Requests from the block's side to a server, the worker's part included: the server is libmodbus',
// and misbehaves where a test wants it to.
#include "addins/corvane_modbus/transfer.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <condition_variable>
#include <fstream>
#include <iterator>

#include "tests/support/captured_log.h"
#include "tests/support/modbus_server.h"
#include "tests/support/wait_for.h"

namespace {

using namespace corvane_modbus;
using modbus::Inputs;
using modbus::PlanFrom;
using test_support::ModbusServer;
using test_support::WaitFor;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

using Peer = ModbusServer::Peer;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

class ModbusTransfer : public testing::Test {
 protected:
  ModbusTransfer() { test_support::TakeLog(); }
  ~ModbusTransfer() override { ModbusService::The().End(milliseconds(5000)); }

  /// Inputs for a server on the loopback.
  static Inputs To(int port) {
    // Only a failing test waits so long.
    const auto patience = std::chrono::duration<double>(test_support::kPatience).count();
    return {.server = "127.0.0.1", .port = port, .unit = 1, .timeout = patience};
  }
  static Inputs Writing(int port, const char* values) {
    Inputs inputs = To(port);
    inputs.write = true;
    inputs.values = values;
    return inputs;
  }
  static std::unique_ptr<Transfer> Begin(const Inputs& inputs) {
    const Plan plan = PlanFrom(inputs);
    EXPECT_EQ(plan.problem, "");
    return std::make_unique<Transfer>(plan);
  }
  static Outcome End(Transfer& transfer) {
    std::optional<Outcome> outcome;
    EXPECT_TRUE(WaitFor([&] { return (outcome = transfer.Poll()).has_value(); },
                        2 * test_support::kPatience));
    return outcome.value_or(Outcome{});
  }
  static Outcome Do(const Inputs& inputs) { return End(*Begin(inputs)); }
};

// A server that behaves.

TEST_F(ModbusTransfer, ReadsEachTable) {
  ModbusServer server;
  server.WithTables([](modbus_mapping_t& tables) {
    tables.tab_bits[3] = 1;
    tables.tab_input_bits[4] = 1;
    tables.tab_registers[5] = 500;
    tables.tab_input_registers[6] = 600;
  });
  Inputs inputs = To(server.port());
  inputs.count = 2;
  inputs.table = "coils", inputs.address = 2;
  EXPECT_THAT(Do(inputs).bits, ElementsAre(0, 1));
  inputs.table = "discrete inputs", inputs.address = 4;
  EXPECT_THAT(Do(inputs).bits, ElementsAre(1, 0));
  inputs.table = "holding registers", inputs.address = 5;
  EXPECT_THAT(Do(inputs).registers, ElementsAre(500, 0));
  inputs.table = "input registers", inputs.address = 5;
  EXPECT_THAT(Do(inputs).registers, ElementsAre(0, 600));
  EXPECT_EQ(server.connections(), 1) << "one connection for all";
}

TEST_F(ModbusTransfer, WritesOneWithItsOwnFunctionAndSeveralAtOnce) {
  ModbusServer server;
  std::vector<int> functions;
  server.React([&](const Peer& peer) {
    functions.push_back(peer.request[7]);
    peer.reply();
  });
  Inputs inputs = Writing(server.port(), "42");
  inputs.address = 10;
  EXPECT_EQ(Do(inputs).text, "");
  inputs.values = "1 2 3", inputs.address = 11;
  EXPECT_EQ(Do(inputs).text, "");
  inputs.table = "coils", inputs.values = "true", inputs.address = 20;
  EXPECT_EQ(Do(inputs).text, "");
  inputs.values = "1 0 1", inputs.address = 21;
  EXPECT_EQ(Do(inputs).text, "");
  EXPECT_THAT(functions, ElementsAre(6, 16, 5, 15));
  server.WithTables([](modbus_mapping_t& tables) {
    EXPECT_THAT(std::vector<int>(tables.tab_registers + 10, tables.tab_registers + 14),
                ElementsAre(42, 1, 2, 3));
    EXPECT_THAT(std::vector<int>(tables.tab_bits + 20, tables.tab_bits + 24),
                ElementsAre(1, 1, 0, 1));
  });
}

TEST_F(ModbusTransfer, AsksForTheUnitThatIsGiven) {
  ModbusServer server;
  std::vector<int> units;
  server.React([&](const Peer& peer) {
    units.push_back(peer.request[6]);
    peer.reply();
  });
  Inputs inputs = To(server.port());
  for (const int unit : {0, 1, 247, 255}) {
    inputs.unit = unit;
    EXPECT_EQ(Do(inputs).text, "") << unit;
  }
  EXPECT_THAT(units, ElementsAre(0, 1, 247, 255));
}

TEST_F(ModbusTransfer, AnswersOfFullLengthAreRead) {
  ModbusServer server;
  server.React([](const Peer& peer) {
    std::vector<std::uint8_t> pdu{peer.request[7], 250};
    for (int i = 0; i < 250; ++i) pdu.push_back(static_cast<std::uint8_t>(i));
    peer.SendAnswer(pdu);
  });
  Inputs inputs = To(server.port());
  inputs.count = 125;
  const Outcome outcome = Do(inputs);
  ASSERT_EQ(outcome.registers.size(), 125U);
  EXPECT_EQ(outcome.registers[124], 0xF8F9);
}

TEST_F(ModbusTransfer, ServersAreFoundByIpv6AndByName) {
  ModbusServer six(AF_INET6);
  Inputs inputs = To(six.port());
  inputs.server = "::1";
  EXPECT_EQ(Do(inputs).text, "");
  ModbusServer four;
  inputs.port = four.port();
  inputs.server = "localhost";  // also ::1, where nobody listens
  EXPECT_EQ(Do(inputs).text, "");
}

TEST_F(ModbusTransfer, AHundredRequestsShareAConnection) {
  ModbusServer server;
  std::vector<std::unique_ptr<Transfer>> transfers;
  for (int i = 0; i < 100; ++i) {
    Inputs inputs = Writing(server.port(), std::to_string(1000 + i).c_str());
    inputs.address = i;
    transfers.push_back(Begin(inputs));
  }
  for (const auto& transfer : transfers) EXPECT_EQ(End(*transfer).text, "");
  EXPECT_EQ(server.connections(), 1);
  server.WithTables([](modbus_mapping_t& tables) { EXPECT_EQ(tables.tab_registers[99], 1099); });
}

// A server that refuses.

TEST_F(ModbusTransfer, AnExceptionIsNamed) {
  ModbusServer server;
  Inputs inputs = To(server.port());
  inputs.address = 1000;
  const Outcome outcome = Do(inputs);
  EXPECT_EQ(outcome.error, ErrorId::kModbusException);
  EXPECT_EQ(outcome.exception, 2);
  EXPECT_THAT(outcome.text, HasSubstr("ILLEGAL DATA ADDRESS (exception 2)"));
  inputs.address = 0;
  EXPECT_EQ(Do(inputs).text, "");
  EXPECT_EQ(server.connections(), 1) << "an exception is an answer";
}

TEST_F(ModbusTransfer, EveryExceptionCodeIsARefusal) {
  ModbusServer server;
  std::atomic<int> code{0};
  server.React([&](const Peer& peer) {
    peer.SendAnswer(
        {static_cast<std::uint8_t>(peer.request[7] | 0x80), static_cast<std::uint8_t>(code)});
  });
  for (const int given : {1, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 127, 255}) {
    code = given;
    const Outcome outcome = Do(To(server.port()));
    EXPECT_EQ(outcome.error, ErrorId::kModbusException) << given;
    EXPECT_EQ(outcome.exception, given <= 11 ? given : 0);
  }
}

TEST_F(ModbusTransfer, AServerWithoutTheFunctionForOneValueGetsTheOtherOne) {
  ModbusServer server;
  server.React([](const Peer& peer) {
    if (peer.request[7] == 5 || peer.request[7] == 6) {
      peer.SendAnswer({static_cast<std::uint8_t>(peer.request[7] | 0x80), 1});
    } else {
      peer.reply();
    }
  });
  Inputs inputs = Writing(server.port(), "7");
  EXPECT_EQ(Do(inputs).text, "");
  server.WithTables([](modbus_mapping_t& tables) { EXPECT_EQ(tables.tab_registers[0], 7); });
  inputs.table = "coils", inputs.values = "1";
  EXPECT_EQ(Do(inputs).text, "");
  server.WithTables([](modbus_mapping_t& tables) { EXPECT_EQ(tables.tab_bits[0], 1); });
}

// A server that cannot be reached.

TEST_F(ModbusTransfer, ARefusedConnectionIsAnErrorAtOnce) {
  int port = 0;
  { port = test_support::PortOf(test_support::Listen(AF_INET, 0, 1)); }
  const Outcome outcome = Do(To(port));
  EXPECT_EQ(outcome.error, ErrorId::kNoConnection);
  EXPECT_EQ(outcome.text, "Modbus server 127.0.0.1:" + std::to_string(port) +
                              " refuses the connection; check Port, and that the server runs");
}

TEST_F(ModbusTransfer, ARefusedConnectionAnswersAllThatWait) {
  int port = 0;
  { port = test_support::PortOf(test_support::Listen(AF_INET, 0, 1)); }
  std::vector<std::unique_ptr<Transfer>> transfers;
  const auto begin = steady_clock::now();
  for (int i = 0; i < 100; ++i) transfers.push_back(Begin(To(port)));
  // As blocks do, all of them look in each cycle: one that met the worker's lock is handed over
  // then.
  std::vector<std::string> answers;
  EXPECT_TRUE(WaitFor([&] {
    std::erase_if(transfers, [&](const auto& transfer) {
      const auto outcome = transfer->Poll();
      if (outcome) answers.push_back(outcome->text);
      return outcome.has_value();
    });
    return transfers.empty();
  }));
  EXPECT_THAT(answers, testing::Each(HasSubstr("refuses the connection")));
  EXPECT_EQ(answers.size(), 100U);
  EXPECT_LT(steady_clock::now() - begin, test_support::kPatience / 2);
}

TEST_F(ModbusTransfer, AnUnknownNameIsAnError) {
  Inputs inputs = To(502);
  inputs.server = "no-such-host.invalid";
  const Outcome outcome = Do(inputs);
  EXPECT_EQ(outcome.error, ErrorId::kNoConnection);
  EXPECT_THAT(outcome.text, AllOf(HasSubstr("no-such-host.invalid:502"), HasSubstr("name")));
}

TEST_F(ModbusTransfer, AttemptsToConnectPauseAndEndWithAServer) {
  int port = 0;
  { port = test_support::PortOf(test_support::Listen(AF_INET, 0, 1)); }
  const auto begin = steady_clock::now();
  for (int i = 0; i < 4; ++i) EXPECT_EQ(Do(To(port)).error, ErrorId::kNoConnection);
  EXPECT_GE(steady_clock::now() - begin, milliseconds(100 + 200 + 400));
  ModbusServer server(AF_INET, port);
  EXPECT_EQ(Do(To(port)).text, "");
}

TEST_F(ModbusTransfer, AnAttemptThatWouldComeTooLateIsAnErrorAtOnce) {
  int port = 0;
  { port = test_support::PortOf(test_support::Listen(AF_INET, 0, 1)); }
  EXPECT_EQ(Do(To(port)).error, ErrorId::kNoConnection);
  Inputs inputs = To(port);
  inputs.timeout = 0.001;
  EXPECT_EQ(Do(inputs).error, ErrorId::kNoConnection);
}

/// A listening socket whose queue is full, so that the system drops further attempts.
struct DeafServer {
  corvane::Descriptor listening = test_support::Listen(AF_INET, 0, 0);
  std::vector<corvane::Descriptor> fillers;
  int port = test_support::PortOf(listening);

  DeafServer() {
    for (int i = 0; i < 4; ++i) {
      fillers.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      sockaddr_storage address{};
      socklen_t length = sizeof address;
      getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &length);
      (void)!connect(fillers.back().get(), reinterpret_cast<sockaddr*>(&address), length);
    }
  }
};

TEST_F(ModbusTransfer, AServerThatDoesNotAcceptIsAnErrorAfterTheTimeout) {
  const DeafServer deaf;
  Inputs inputs = To(deaf.port);
  inputs.timeout = 0.2;
  const auto begin = steady_clock::now();
  const Outcome outcome = Do(inputs);
  EXPECT_EQ(outcome.error, ErrorId::kNoConnection);
  EXPECT_THAT(outcome.text, HasSubstr("does not accept the connection in time"));
  EXPECT_GE(steady_clock::now() - begin, milliseconds(200));
}

TEST_F(ModbusTransfer, ADeadServerHoldsUpNoOther) {
  const DeafServer deaf;
  const auto held_up = Begin(To(deaf.port));
  ModbusServer server;
  EXPECT_EQ(Do(To(server.port())).text, "");
  EXPECT_EQ(held_up->Poll(), std::nullopt);
}

// A server that does not answer, or not as it should.

TEST_F(ModbusTransfer, ASilentServerIsAnErrorAfterTheTimeout) {
  ModbusServer server;
  server.React([](const Peer&) {});
  Inputs inputs = To(server.port());
  inputs.timeout = 0.2;
  const Outcome outcome = Do(inputs);
  EXPECT_EQ(outcome.error, ErrorId::kNoAnswer);
  EXPECT_THAT(outcome.text,
              HasSubstr("does not answer within 0.2 s to reading 1 holding register"));
  server.React({});
  EXPECT_EQ(Do(To(server.port())).text, "");
}

TEST_F(ModbusTransfer, ASilentServerIsAskedOnlyOnceToWrite) {
  ModbusServer server;
  server.React([](const Peer&) {});
  Inputs inputs = Writing(server.port(), "1");
  inputs.timeout = 0.2;
  const Outcome outcome = Do(inputs);
  EXPECT_EQ(outcome.error, ErrorId::kNoAnswer);
  EXPECT_THAT(outcome.text, HasSubstr("whether it has written is not known"));
  EXPECT_EQ(server.requests(), 1);
}

TEST_F(ModbusTransfer, OctetsThatTrickleInDoNotStretchTheTimeout) {
  ModbusServer server;
  std::atomic<bool> ended{false};
  server.React([&](const Peer& peer) {
    peer.Send({peer.request[0], peer.request[1], 0, 0, 0, 251, peer.request[6], 3, 248});
    for (int i = 0; i < 248 && !ended; ++i) {
      peer.Send({1});
      std::this_thread::sleep_for(milliseconds(20));
    }
  });
  Inputs inputs = To(server.port());
  inputs.count = 124;
  inputs.timeout = 0.3;
  const auto begin = steady_clock::now();
  const Outcome outcome = Do(inputs);
  ended = true;
  EXPECT_EQ(outcome.error, ErrorId::kNoAnswer);
  EXPECT_LT(steady_clock::now() - begin, milliseconds(300 + 250) + test_support::kPatience / 10);
}

TEST_F(ModbusTransfer, ALateAnswerIsNotTakenForTheNextOne) {
  ModbusServer server;
  std::atomic<bool> late{false};
  server.React([&](const Peer& peer) {
    if (server.requests() > 1) {
      peer.reply();
      return;
    }
    WaitFor([&] { return late.load(); });
    peer.SendAnswer({3, 2, 0xDE, 0xAD});
  });
  Inputs inputs = To(server.port());
  inputs.timeout = 0.2;
  EXPECT_EQ(Do(inputs).error, ErrorId::kNoAnswer);
  late = true;
  EXPECT_THAT(Do(To(server.port())).registers, ElementsAre(0));
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(ModbusTransfer, WhatIsNotTheAnswerIsAnError) {
  const std::pair<const char*, std::function<void(const Peer&)>> cases[] = {
      {"another transaction",
       [](const Peer& peer) {
         peer.Send({static_cast<std::uint8_t>(peer.request[0] + 1), peer.request[1], 0, 0, 0, 5,
                    peer.request[6], 3, 2, 0, 1});
       }},
      {"another function",
       [](const Peer& peer) {
         peer.SendAnswer({4, 2, 0, 1});
       }},
      {"more registers",
       [](const Peer& peer) {
         peer.SendAnswer({3, 4, 0, 1, 0, 2});
       }},
      {"no registers",
       [](const Peer& peer) {
         peer.SendAnswer({3, 0});
       }},
      {"another protocol",
       [](const Peer& peer) {
         const std::string text = "HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n";
         peer.Send({text.begin(), text.end()});
       }},
  };
  for (const auto& [what, reaction] : cases) {
    SCOPED_TRACE(what);
    ModbusServer server;
    server.React(reaction);
    Inputs inputs = To(server.port());
    inputs.timeout = 0.5;  // of some, libmodbus expects more octets
    const Outcome outcome = Do(inputs);
    EXPECT_EQ(outcome.error, ErrorId::kNoAnswer) << outcome.text;
    server.React({});
    EXPECT_EQ(Do(To(server.port())).text, "") << "with a new connection";
    EXPECT_EQ(server.connections(), 2);
  }
}

TEST_F(ModbusTransfer, WhatComesUnaskedEndsTheConnection) {
  ModbusServer server;
  server.React([](const Peer& peer) {
    const auto& of = peer.request;
    // One segment, or the noise could arrive as the answer to the next request.
    peer.Send({of[0], of[1], 0, 0, 0, 5, of[6], of[7], 2, 0, 0, 0xDE, 0xAD, 0xBE, 0xEF});
  });
  for (int i = 0; i < 3; ++i) EXPECT_THAT(Do(To(server.port())).registers, ElementsAre(0)) << i;
}

TEST_F(ModbusTransfer, ARandomStreamIsAnErrorAndNothingElse) {
  ModbusServer server;
  server.React([](const Peer& peer) {
    std::vector<std::uint8_t> noise(4096);
    unsigned state = peer.request[1] + 1U;
    for (auto& octet : noise) octet = static_cast<std::uint8_t>((state = state * 69069 + 1) >> 24);
    peer.Send(noise);
    peer.Close();
  });
  for (int i = 0; i < 20; ++i) {
    Inputs inputs = To(server.port());
    inputs.count = 1 + i;
    EXPECT_EQ(Do(inputs).error, ErrorId::kNoAnswer);
  }
}

// Connections that end.

TEST_F(ModbusTransfer, AServerThatClosesAfterEachRequestIsServed) {
  ModbusServer server;
  server.React([](const Peer& peer) {
    peer.reply();
    peer.Close();
  });
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(Do(To(server.port())).text, "") << i;
    EXPECT_TRUE(WaitFor([&] { return server.open_connections() == 0; }));
  }
  EXPECT_EQ(Do(Writing(server.port(), "5")).text, "");
  EXPECT_EQ(server.connections(), 11);
}

TEST_F(ModbusTransfer, AConnectionThatEndsWhileReadingIsMadeAgainOnce) {
  ModbusServer server;
  EXPECT_EQ(Do(To(server.port())).text, "");
  server.React([&](const Peer& peer) {
    if (server.connections() == 1) {
      peer.Close();
    } else {
      peer.reply();
    }
  });
  EXPECT_EQ(Do(To(server.port())).text, "");
  EXPECT_EQ(server.requests(), 3);
}

TEST_F(ModbusTransfer, AConnectionThatEndsWhileWritingLeavesADoubt) {
  ModbusServer server;
  EXPECT_EQ(Do(To(server.port())).text, "");
  server.React([](const Peer& peer) { peer.Close(); });
  const Outcome outcome = Do(Writing(server.port(), "5"));
  EXPECT_EQ(outcome.error, ErrorId::kNoAnswer);
  EXPECT_THAT(outcome.text, AllOf(HasSubstr("closes the connection"), HasSubstr("is not known")));
  EXPECT_EQ(server.requests(), 2) << "writing is not repeated";
}

TEST_F(ModbusTransfer, AServerThatAlwaysHangsUpIsAnError) {
  ModbusServer server;
  server.React([](const Peer& peer) { peer.Close(); });
  EXPECT_THAT(Do(To(server.port())).text, HasSubstr("closes the connection instead of answering"));
  EXPECT_EQ(server.requests(), 1);
}

TEST_F(ModbusTransfer, AServerMayRestart) {
  int port = 0;
  {
    ModbusServer server;
    port = server.port();
    EXPECT_EQ(Do(To(port)).text, "");
  }
  EXPECT_EQ(Do(To(port)).error, ErrorId::kNoConnection);
  ModbusServer server(AF_INET, port);
  EXPECT_EQ(Do(To(port)).text, "");
}

// Ends.

TEST_F(ModbusTransfer, WhatIsAbandonedBeforeItIsSentIsNeverSent) {
  ModbusServer server;
  std::atomic<bool> released{false};
  server.React([&](const Peer& peer) {
    WaitFor([&] { return released.load(); });
    peer.reply();
  });
  const auto first = Begin(To(server.port()));
  ASSERT_TRUE(WaitFor([&] { return server.requests() == 1; }));
  Begin(Writing(server.port(), "99")).reset();
  released = true;
  EXPECT_EQ(End(*first).text, "");
  EXPECT_EQ(Do(To(server.port())).text, "");
  EXPECT_EQ(server.requests(), 2);
  server.WithTables([](modbus_mapping_t& tables) { EXPECT_EQ(tables.tab_registers[0], 0); });
}

TEST_F(ModbusTransfer, WhatWaitsTooLongIsNotSent) {
  ModbusServer server;
  std::atomic<bool> released{false};
  server.React([&](const Peer& peer) {
    WaitFor([&] { return released.load(); });
    peer.reply();
  });
  const auto first = Begin(To(server.port()));
  ASSERT_TRUE(WaitFor([&] { return server.requests() == 1; }));
  Inputs inputs = Writing(server.port(), "99");
  inputs.timeout = 0.1;
  const Outcome outcome = Do(inputs);
  EXPECT_EQ(outcome.error, ErrorId::kNoConnection);
  EXPECT_THAT(outcome.text, HasSubstr("has kept other requests waiting, so writing 1 holding"));
  released = true;
  EXPECT_EQ(End(*first).text, "");
  EXPECT_EQ(Do(To(server.port())).text, "");
  EXPECT_EQ(server.requests(), 2);
}

TEST_F(ModbusTransfer, TheEndWaitsForNoServer) {
  ModbusServer silent;
  silent.React([](const Peer&) {});
  const DeafServer deaf;
  const auto asked = Begin(Writing(silent.port(), "1"));
  const auto connecting = Begin(To(deaf.port));
  ASSERT_TRUE(WaitFor([&] { return silent.requests() == 1; }));
  const auto begin = steady_clock::now();
  ModbusService::The().End(test_support::kPatience);
  EXPECT_LT(steady_clock::now() - begin, test_support::kPatience / 2);
  EXPECT_THAT(test_support::TakeLog(),
              ElementsAre(AllOf(HasSubstr("the program ends while writing 1 holding register"),
                                HasSubstr("whether it has written is not known"))));
}

TEST_F(ModbusTransfer, WorksAgainAfterTheEnd) {
  ModbusServer server;
  EXPECT_EQ(Do(To(server.port())).text, "");
  ModbusService::The().End(milliseconds(5000));
  EXPECT_EQ(Do(To(server.port())).text, "");
}

TEST_F(ModbusTransfer, AConnectionThatNobodyUsesEnds) {
  ModbusServer server;
  ModbusService::The().KeepConnectionsFor(milliseconds(50));
  EXPECT_EQ(Do(To(server.port())).text, "");
  EXPECT_TRUE(WaitFor([&] { return server.open_connections() == 0; }));
  ModbusService::The().KeepConnectionsFor(ModbusService::kIdleTime);
  EXPECT_EQ(Do(To(server.port())).text, "");
  EXPECT_EQ(server.connections(), 2);
}

TEST_F(ModbusTransfer, TooManyServersAreAnError) {
  const DeafServer deaf;
  for (std::size_t i = 1; i <= ModbusService::kMostServers; ++i) {
    Inputs inputs = To(deaf.port);
    inputs.server = "127.0.2." + std::to_string(i);
    EXPECT_THAT(Do(inputs).text, HasSubstr("refuses the connection"));  // its worker stays a while
  }
  Inputs inputs = To(deaf.port);
  inputs.server = "127.0.1.1";
  EXPECT_THAT(Do(inputs).text, HasSubstr("uses 64 Modbus servers already"));
}

TEST_F(ModbusTransfer, DescriptorsBeyondThoseOfSelectAreAnError) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit more{std::min<rlim_t>(limit.rlim_max, 4096), limit.rlim_max};
  if (more.rlim_cur < FD_SETSIZE + 100) GTEST_SKIP() << "the system allows few descriptors";
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &more), 0);
  ModbusServer server;
  // The server's threads open files while they start, whose numbers would be free afterwards.
  EXPECT_EQ(Do(To(server.port())).text, "");
  ModbusService::The().End(milliseconds(5000));
  ASSERT_TRUE(WaitFor([&] { return server.open_connections() == 0; }));
  {
    std::vector<corvane::Descriptor> files;
    while (files.empty() || files.back().get() < FD_SETSIZE) {
      files.emplace_back(dup(0));
      ASSERT_GE(files.back().get(), 0);
    }
    const Outcome outcome = Do(To(server.port()));
    EXPECT_EQ(outcome.error, ErrorId::kNoConnection);
    EXPECT_THAT(outcome.text, HasSubstr("too many open files"));
  }
  EXPECT_EQ(Do(To(server.port())).text, "");
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace
