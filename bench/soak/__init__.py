"""The real daemon under everything that its surroundings can do, for as long as one likes: what `./zel soak` runs.

One main sequence plays ZELApp and the registered PC and checks every answer; strangers on the network work beside it.
Now and then everybody leaves, and the daemon at rest must have as many descriptors and threads as after its warm-up.
"""
