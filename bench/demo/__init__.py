"""The product at work, shown step by step on a simulated analyzer: what `./zel demo` runs."""
