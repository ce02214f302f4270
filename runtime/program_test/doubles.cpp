// SPDX-License-Identifier: MIT
#include "runtime/program_test/doubles.h"

#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/st_library.h"
#include "runtime/program_test/earlier_sms_doubles.h"
#include "runtime/program_test/mail_doubles.h"
#include "runtime/program_test/modbus_double.h"
#include "runtime/program_test/process_doubles.h"
#include "runtime/program_test/sms_doubles.h"

namespace corvane::program_test {
namespace {

struct Double {
  const LuaFBUtil& (*util)();
  DeclarationRows& (*rows)();
  lua_CFunction opener;
};

template <class T>
Double DoubleOf(lua_CFunction opener) {
  return {FBUtil<T>, T::Rows, opener};
}

}  // namespace

void InstallDoubles() {
  const Double doubles[] = {
      DoubleOf<SendSmsDouble>(luaopen_SendSmsDouble),
      DoubleOf<ReadSmsDouble>(luaopen_ReadSmsDouble),
      DoubleOf<SendEmailDouble>(luaopen_SendEmailDouble),
      DoubleOf<ShellDouble>(luaopen_ShellDouble),
      DoubleOf<ShellResultDouble>(luaopen_ShellResultDouble),
      DoubleOf<ProcessDouble>(luaopen_ProcessDouble),
      DoubleOf<SmsOutboxDouble>(luaopen_SmsOutboxDouble),
      DoubleOf<SmsInboxDouble>(luaopen_SmsInboxDouble),
      DoubleOf<MailOutboxDouble>(luaopen_MailOutboxDouble),
      DoubleOf<ModbusDouble>(luaopen_ModbusDouble),
  };
  const LuaEnvironment real;
  for (const Double& one : doubles) one.rows().Read(real.state(), one.util().typeName);
  for (const Double& one : doubles) {
    // Of an add-in that is not loaded there is nothing to replace.
    static_cast<void>(ReplaceStLibrary(one.util().typeName, one.opener));
  }
}

}  // namespace corvane::program_test
