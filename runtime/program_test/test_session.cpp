// SPDX-License-Identifier: MIT
#include "runtime/program_test/test_session.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <system_error>

namespace corvane::program_test {
namespace {

namespace fs = std::filesystem;

fs::path MakeFolder() {
  std::string pattern = (fs::temp_directory_path() / "corvane-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw fs::filesystem_error("cannot create", pattern, {errno, std::generic_category()});
  }
  return pattern;
}

}  // namespace

TestFolder::TestFolder() : before_(fs::current_path()), path_(MakeFolder()) {
  fs::create_directory(path_ / "work");
  fs::current_path(path_ / "work");
}

TestFolder::~TestFolder() {
  std::error_code error;
  fs::current_path(before_, error);
  fs::remove_all(path_, error);
}

// NOLINTBEGIN(concurrency-mt-unsafe): no other thread is running
TestZone::TestZone() {
  const char* const zone = std::getenv("TZ");
  was_set_ = zone != nullptr;
  before_ = was_set_ ? zone : "";
}

TestZone::~TestZone() {
  was_set_ ? setenv("TZ", before_.c_str(), 1) : unsetenv("TZ");
  tzset();
}

bool TestZone::Set(const std::string& zone) {
  const char* const folder = std::getenv("TZDIR");
  const fs::path zones = folder != nullptr ? folder : "/usr/share/zoneinfo";
  std::error_code error;
  // The C library takes what it does not know for UTC.
  if (zone != "UTC" && !fs::is_regular_file(zones / zone, error)) return false;
  setenv("TZ", zone.c_str(), 1);
  tzset();
  return true;
}
// NOLINTEND(concurrency-mt-unsafe)

}  // namespace corvane::program_test
