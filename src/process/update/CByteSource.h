#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace RMUP::Process {

/// The bytes of an update file, one after another, wherever they come from. Reads ahead, so that small pieces do not
/// cost a system call each.
class CByteSource {
public:
    CByteSource();
    CByteSource(const CByteSource&) = delete;
    CByteSource& operator=(const CByteSource&) = delete;
    virtual ~CByteSource() = default;

    /// The next bytes: at most `most`, and at least one. Empty at the end, with errno 0, and after a failure, with its
    /// errno; asking again tries again. Valid until the next call.
    [[nodiscard]] std::span<const std::uint8_t> Take(std::size_t most);

    /// Fills the whole span. False when the source ends or fails before; what came is used up then, too.
    [[nodiscard]] bool Read(std::span<std::uint8_t> bytes);

    /// Passes over so many bytes. False when the source ends or fails before.
    [[nodiscard]] bool Skip(std::size_t count);

protected:
    /// As read(2): the bytes put into the buffer, 0 at the end, -1 with errno after a failure.
    virtual ssize_t Fill(std::span<std::uint8_t> buffer) = 0;

    std::size_t BytesAhead() const { return end_ - next_; }
    void DropBytesAhead() { next_ = end_; }

private:
    std::unique_ptr<std::uint8_t[]> buffer_;
    std::size_t next_ = 0;
    std::size_t end_ = 0;
};

}  // namespace RMUP::Process
