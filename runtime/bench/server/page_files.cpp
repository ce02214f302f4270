// SPDX-License-Identifier: MIT
#include "runtime/bench/server/page_files.h"

#include <algorithm>
#include <array>

namespace corvane::bench {
namespace {

struct EndAndType {
  std::string_view end;
  std::string_view type;
};

constexpr std::array kTypes{
    EndAndType{".html", "text/html; charset=utf-8"},
    EndAndType{".js", "text/javascript; charset=utf-8"},
    EndAndType{".mjs", "text/javascript; charset=utf-8"},
    EndAndType{".css", "text/css; charset=utf-8"},
    EndAndType{".svg", "image/svg+xml"},
    EndAndType{".png", "image/png"},
    EndAndType{".ico", "image/x-icon"},
    EndAndType{".json", "application/json"},
    EndAndType{".webmanifest", "application/manifest+json"},
};

}  // namespace

const PageFile* FindPageFile(std::string_view path) {
  if (path == "/") path = "/index.html";
  const auto files = PageFiles();
  const auto found = std::ranges::find(files, path, &PageFile::path);
  return found == files.end() ? nullptr : &*found;
}

std::string_view MediaType(std::string_view path) {
  const auto found =
      std::ranges::find_if(kTypes, [path](const EndAndType& t) { return path.ends_with(t.end); });
  return found == kTypes.end() ? "text/plain; charset=utf-8" : found->type;
}

}  // namespace corvane::bench
