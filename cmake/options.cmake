# SPDX-License-Identifier: MIT
# How all our targets are compiled, and where the results go.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  # A controller may run beyond the year 2038, and a huge file must be reported as too big, not missing.
  add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# The programs and libraries find each other wherever the tree is moved or installed.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

if(CORVANE_SANITIZE)
  add_compile_options(-fsanitize=${CORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  if(CORVANE_SANITIZE MATCHES undefined)
    # The vptr check opens a pipe to inspect an object, so it fails when a test uses up all descriptors.
    add_compile_options(-fno-sanitize=vptr)
  endif()
  add_link_options(-fsanitize=${CORVANE_SANITIZE})
endif()

if(CORVANE_SANITIZE MATCHES thread)
  # GCC's thread sanitizer does not know fences. Boost.Asio has them in addition to locks, which it knows.
  add_compile_definitions(BOOST_ASIO_DISABLE_FENCED_BLOCK)
endif()

# A text from a stranger's phone reaches our parsers: make any fault left there hard to exploit.
if(CMAKE_BUILD_TYPE STREQUAL Release)
  add_compile_options(-fstack-protector-strong -fstack-clash-protection -D_FORTIFY_SOURCE=2)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    add_compile_options(-fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    add_compile_options(-mbranch-protection=standard)
  endif()
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
  include(CheckPIESupported)
  check_pie_supported()
endif()

# The warnings for our own code; third-party headers are included as system headers.
add_library(corvane_warnings INTERFACE)
target_compile_options(corvane_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Werror
  # GCC 12 sees an overlap in std::string's own code (GCC bug 105651).
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)
