# SPDX-License-Identifier: MIT
# The Debian 12 libraries that we use. packaging/packages.sh installs them.
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(spdlog REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(utf8cpp REQUIRED)
find_package(SQLiteCpp REQUIRED)
find_package(Boost 1.74 REQUIRED)

# Names of hosts in other scripts than Latin; libcurl needs the same library.
pkg_check_modules(IDN2 REQUIRED IMPORTED_TARGET libidn2)
pkg_check_modules(NCURSES REQUIRED IMPORTED_TARGET ncursesw)
pkg_check_modules(MODBUS REQUIRED IMPORTED_TARGET libmodbus)
# Mail: libcurl does TLS with OpenSSL, whose codes tell what is wrong with a certificate.
pkg_check_modules(CURL REQUIRED IMPORTED_TARGET libcurl)
pkg_check_modules(OPENSSL REQUIRED IMPORTED_TARGET openssl)

# Lua compiled as C++: an error unwinds the C++ frames it passes.
pkg_check_modules(LUA REQUIRED IMPORTED_TARGET lua5.2-c++)

# Only the headers, for code whose host provides the library. LUA_COMPAT_MODULE declares luaL_openlib.
add_library(lua_headers INTERFACE)
target_include_directories(lua_headers SYSTEM INTERFACE ${LUA_INCLUDE_DIRS})
target_compile_definitions(lua_headers INTERFACE LUA_COMPAT_MODULE)
