# SPDX-License-Identifier: MIT
# embed_files(FOLDER OUT): writes a C++ source with all files of FOLDER when CMake runs, which it does again when one of
# them changes. So the source is there for an analysis that builds nothing.
function(embed_files FOLDER OUT)
  file(GLOB_RECURSE names CONFIGURE_DEPENDS RELATIVE ${FOLDER} ${FOLDER}/*)
  set(arrays)
  set(rows)
  set(number 0)
  foreach(name IN LISTS names)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${FOLDER}/${name})
    file(READ ${FOLDER}/${name} octets HEX)
    file(SHA256 ${FOLDER}/${name} digest)
    string(SUBSTRING ${digest} 0 16 digest)
    # A text of escapes: the compiler takes much less time for it than for a list of numbers.
    string(REPEAT "." 64 line)
    string(REGEX REPLACE "(${line})" "\\1\n" literal "${octets}")
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "\\\\x\\1" literal "${literal}")
    string(REPLACE "\n" "\"\n    \"" literal "${literal}")
    string(LENGTH "${octets}" size)
    math(EXPR size "${size} / 2")
    string(APPEND arrays "constexpr const char* kFile${number} =\n\"${literal}\";\n")
    string(APPEND rows "    PageFile{\"/${name}\", {kFile${number}, ${size}}, \"${digest}\"},\n")
    math(EXPR number "${number} + 1")
  endforeach()
  file(GENERATE OUTPUT ${OUT} CONTENT "#include \"runtime/bench/server/page_files.h\"

#include <array>

namespace corvane::bench {
namespace {

${arrays}
const std::array<PageFile, ${number}> kFiles{
${rows}};

}  // namespace

std::span<const PageFile> PageFiles() {
  return kFiles;
}

}  // namespace corvane::bench
")
endfunction()
