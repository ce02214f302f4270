// SPDX-License-Identifier: MIT
#include "runtime/bench/server/metrics_text.h"

#include <gtest/gtest.h>

namespace corvane::bench {
namespace {

TEST(MetricsTextTest, EscapesLabels) {
  MetricsText metrics;
  metrics.Begin("a", "gauge", "Help.");
  metrics.Add(1.5, {{"name", "x\"\\\ny"}, {"b", "c"}});
  metrics.Add(2, {}, "_sum");
  EXPECT_EQ(metrics.text(),
            "# HELP a Help.\n# TYPE a gauge\na{name=\"x\\\"\\\\\\ny\",b=\"c\"} 1.5\na_sum 2\n");
}

}  // namespace
}  // namespace corvane::bench
