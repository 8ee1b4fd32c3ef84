"""The limits that guard the suite against a hang.

They are generous on purpose: every wait ends with the event it waits for, so a slow machine only
makes a test slower.
"""

import os

HANG_LIMIT = 90.0  # seconds, for a single wait
# Seconds, for each of a test's three phases.
TEST_LIMIT = float(os.environ.get("QUELTA_TEST_LIMIT", "900"))
