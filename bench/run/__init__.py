"""Simulated analyzers that stay up, for other programs to be tried on: what `./zel run` starts."""
