// SPDX-License-Identifier: MIT
#include "libs/mail/media_type.h"

#include <gtest/gtest.h>

namespace mail {
namespace {

TEST(MediaType, FollowsTheLastExtensionInAnyCase) {
  EXPECT_EQ(MediaTypeOf("report.pdf"), "application/pdf");
  EXPECT_EQ(MediaTypeOf("levels.2026.CSV"), "text/csv; charset=utf-8");
  EXPECT_EQ(MediaTypeOf("archive.tar.gz"), "application/gzip");
}

TEST(MediaType, KnowsEachExtensionOfTheTable) {
  // Those at the ends and in the middle: a table that is not sorted loses some of them.
  for (const char* name :
       {"7z",   "avi",  "bmp", "csv",  "doc",  "docx", "gif",  "gz",  "htm", "html",
        "ics",  "jpeg", "jpg", "json", "log",  "md",   "mkv",  "mp3", "mp4", "odp",
        "ods",  "odt",  "ogg", "pdf",  "png",  "ppt",  "pptx", "rtf", "svg", "tar",
        "tiff", "txt",  "wav", "xls",  "xlsx", "xml",  "xz",   "zip", "zst"}) {
    EXPECT_NE(MediaTypeOf(std::string("a.") + name), "application/octet-stream") << name;
  }
}

TEST(MediaType, AnythingElseIsOctets) {
  for (const char* name :
       {"", "report", "report.", "report.plc", "pdf", ".profile", "a.mail/pdf", "a.eml"}) {
    EXPECT_EQ(MediaTypeOf(name), "application/octet-stream") << name;
  }
}

}  // namespace
}  // namespace mail
