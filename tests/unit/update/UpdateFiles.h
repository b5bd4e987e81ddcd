#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "process/update/CByteSource.h"

namespace UpdateTest {

/// Image data whose bytes depend on their place, so that a wrong offset or a repeated piece shows.
std::string ImageData(std::size_t size, unsigned seed);

std::span<const std::uint8_t> Bytes(const std::string& text);

/// Bytes in memory, handed out at most `piece` at a time.
class CTextSource : public RMUP::Process::CByteSource {
public:
    explicit CTextSource(std::string text, std::size_t piece = 7) : text_(std::move(text)), piece_(piece) {}

protected:
    ssize_t Fill(std::span<std::uint8_t> buffer) override;

private:
    const std::string text_;
    const std::size_t piece_;
    std::size_t next_ = 0;
};

}  // namespace UpdateTest
