"""Lets the tests of the PC's side take over what those of the service have."""
