# SPDX-License-Identifier: MIT
"""How many times longer than usual a test may take: on a slow machine, or in an emulator."""
import os

TIME_FACTOR = int(os.environ.get("CORVANE_TEST_TIME_FACTOR", "1"))
