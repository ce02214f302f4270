# SPDX-License-Identifier: MIT
"""The processes that a test starts together."""
import os
import time


def await_end(group):
    """Waits until no process of the group is left; the system may take a moment to remove dead ones."""
    end = time.monotonic() + 10
    while True:
        try:
            os.killpg(group, 0)
        except ProcessLookupError:
            return
        assert time.monotonic() < end, "processes of the example are still there"
        time.sleep(0.01)
