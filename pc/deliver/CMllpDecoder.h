#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace ZELPC {

/// Takes frames of the Minimal Lower Layer Protocol out of a stream: 0x0B, the message, 0x1C, 0x0D. What stands between
/// frames is skipped.
class CMllpDecoder {
public:
    static constexpr std::size_t kLongest = 64 * 1024;

    /// Takes the next bytes. False when a frame grows, or noise goes on, beyond kLongest: the stream is of no use then.
    [[nodiscard]] bool Put(std::string_view bytes);
    /// The next whole message; nothing when it has not arrived yet.
    std::optional<std::string> Next();
    /// Whether nothing is half received.
    bool Empty() const { return buffer_.empty(); }
    void Clear() { buffer_.clear(); }

    /// Makes `frame` the frame of a message; its memory is used again.
    static void Frame(std::string_view message, std::string& frame);

private:
    void SkipNoise();

    std::string buffer_;
    std::size_t noise_ = 0;
};

}  // namespace ZELPC
