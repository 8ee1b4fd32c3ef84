"""The one limit that guards every wait of the suite against a hang.

It is generous on purpose: every wait ends with the event it waits for, so a slow machine only makes a test slower.
"""

HANG_LIMIT = 90.0
