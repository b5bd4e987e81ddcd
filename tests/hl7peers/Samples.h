#pragma once

#include <string>

/// The text of a message that its wrapper has filled, everything that the wrapper can set set once; empty for a
/// structure that has no wrapper.
std::string SampleMessage(const std::string& structure);
