// SPDX-License-Identifier: MIT
#include "libs/mail/media_type.h"

#include <algorithm>
#include <string>

namespace mail {
namespace {

struct FileType {
  std::string_view extension;
  std::string_view type;
};

// Texts are taken for UTF-8, in which the runtime's programs write.
constexpr FileType kTypes[] = {
    {"7z", "application/x-7z-compressed"},
    {"avi", "video/x-msvideo"},
    {"bmp", "image/bmp"},
    {"bz2", "application/x-bzip2"},
    {"csv", "text/csv; charset=utf-8"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"eml",
     "application/octet-stream"},  // message/rfc822 must not be in base64 (RFC 2046 clause 5.2.1)
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"htm", "text/html; charset=utf-8"},
    {"html", "text/html; charset=utf-8"},
    {"ics", "text/calendar; charset=utf-8"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"json", "application/json"},
    {"log", "text/plain; charset=utf-8"},
    {"md", "text/markdown; charset=utf-8"},
    {"mkv", "video/x-matroska"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"ogg", "audio/ogg"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"rtf", "application/rtf"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"txt", "text/plain; charset=utf-8"},
    {"wav", "audio/x-wav"},
    {"webp", "image/webp"},
    {"xls", "application/vnd.ms-excel"},
    {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    {"xml", "application/xml"},
    {"xz", "application/x-xz"},
    {"zip", "application/zip"},
    {"zst", "application/zstd"},
};

char ToLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

}  // namespace

std::string_view MediaTypeOf(std::string_view file_name) {
  constexpr std::string_view kUnknown = "application/octet-stream";
  const std::size_t dot = file_name.rfind('.');
  if (dot == file_name.npos || file_name.size() - dot > 10) return kUnknown;
  std::string extension(file_name.substr(dot + 1));
  std::transform(extension.begin(), extension.end(), extension.begin(), ToLower);
  const auto* const place =
      std::lower_bound(std::begin(kTypes), std::end(kTypes), extension,
                       [](const FileType& file_type, const std::string& wanted) {
                         return file_type.extension < wanted;
                       });
  return place != std::end(kTypes) && place->extension == extension ? place->type : kUnknown;
}

}  // namespace mail
