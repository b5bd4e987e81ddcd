#pragma once

#include <cstddef>

/// What went through operator new and delete of the program that CountedHeap.cpp is linked into; from any thread.
namespace CountedHeap {

/// Bytes that are in use, with what the allocator keeps beside each block.
std::size_t Live();

/// The most bytes that were in use at once since the program began or RestartPeak was called.
std::size_t Peak();
void RestartPeak();

/// The number of blocks made so far.
std::size_t Blocks();

}  // namespace CountedHeap
