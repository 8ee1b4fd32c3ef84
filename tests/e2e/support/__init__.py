"""Shared by the end-to-end tests: processes, masters, slaves and hand-written bytes."""
