"""What plays the analyzer's surroundings on a PC.

A simulated analyzer in namespaces of its own, ZELApp, the PC program, update files and the update server. The package
speaks the protocols from its own code, so that a mistake in the service's codecs cannot hide on both sides.
"""
