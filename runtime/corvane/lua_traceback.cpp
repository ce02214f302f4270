// SPDX-License-Identifier: MIT
#include "runtime/corvane/lua_traceback.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <csetjmp>
#include <csignal>
#include <cstring>

namespace corvane {
namespace {

constexpr int kShownLevels = 12;  // of the innermost functions
constexpr int kMostLevels = 200;  // a state that is not in order may have no end
constexpr int kLastLevels = 3;

void AddNumber(TracebackText& text, int number) {
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  text.Add({digits.data(), static_cast<std::size_t>(end - digits.data())});
}

void AddPlace(const char* source, int line, TracebackText& text) {
  text.Add(source);
  if (line <= 0) return;
  text.Add(":");
  AddNumber(text, line);
}

void AddFunction(lua_State* L, lua_Debug& function, TracebackText& text) {
  lua_getinfo(L, "Sln", &function);
  const bool has_name = *function.namewhat != '\0';
  if (*function.what == 'C' && !has_name) return;  // the runtime's own, as a rule
  if (!text.empty()) text.Add(", ");
  AddPlace(function.short_src, function.currentline, text);
  if (has_name) {
    text.Add(" in function '");
    text.Add(function.name);
    text.Add("'");
  } else if (*function.what == 'm') {
    text.Add(" in main chunk");
  } else {
    text.Add(" in function <");
    AddPlace(function.short_src, function.linedefined, text);
    text.Add(">");
  }
}

int CountLevels(lua_State* L) {
  lua_Debug function{};
  int levels = 0;
  while (levels < kMostLevels && lua_getstack(L, levels, &function) != 0) ++levels;
  return levels;
}

sigjmp_buf after_crash;
std::atomic<bool> guarded{false};
pthread_t guarded_thread;

extern "C" void OnCrash(int signal) {
  if (guarded && pthread_equal(pthread_self(), guarded_thread) != 0) siglongjmp(after_crash, 1);
  std::signal(signal, SIG_DFL);  // another thread's: it happens again, with its ordinary effect
}

}  // namespace

void TracebackText::Add(std::string_view text) {
  const std::size_t size = std::min(text.size(), octets_.size() - size_);
  std::memcpy(octets_.data() + size_, text.data(), size);
  size_ += size;
}

void AddTraceback(lua_State* L, TracebackText& text) {
  const int levels = CountLevels(L);
  for (int level = 0; level < levels; ++level) {
    if (level == kShownLevels && levels > kShownLevels + kLastLevels) {
      text.Add(", ...");
      level = levels - kLastLevels;
    }
    lua_Debug function{};
    if (lua_getstack(L, level, &function) == 0) return;
    AddFunction(L, function, text);
  }
}

void AddTracebackGuarded(lua_State* L, TracebackText& text) {
  struct sigaction action {};
  struct sigaction former_segv {};
  struct sigaction former_bus {};
  action.sa_handler = OnCrash;
  sigaction(SIGSEGV, &action, &former_segv);
  sigaction(SIGBUS, &action, &former_bus);
  guarded_thread = pthread_self();
  guarded = true;
  if (sigsetjmp(after_crash, 1) == 0) AddTraceback(L, text);  // NOLINT(cert-err52-cpp)
  guarded = false;
  sigaction(SIGSEGV, &former_segv, nullptr);
  sigaction(SIGBUS, &former_bus, nullptr);
}

}  // namespace corvane
