#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "process/update/CByteSource.h"

/// What is understood of the update server's answers: the end of the header, and where the body of a document ends, by
/// its length or by its chunks. Redirections are not followed.
namespace RMUP::Process {

/// Reads up to and with the empty line that ends the header, and no byte further. False when the source fails before,
/// or the header is longer than 64 KiB.
[[nodiscard]] bool ReadHttpHeader(CByteSource& source, std::string& header);

/// Where a body ends: after so many bytes, or, without a number, after its last chunk.
using HttpEnd = std::optional<std::size_t>;

enum class HttpLength { kGood, kMissing, kInvalid };

/// What the header says of the body's end. Names are understood in any case, at the start of a line only. Invalid: a
/// length that is negative, no number, or more than a document of 1 MiB.
[[nodiscard]] HttpLength ParseLength(std::string_view header, HttpEnd& end);

/// Lost: the source ended or failed before, with the errno of CByteSource::Take. Invalid: chunks that are none, or that
/// make more than a document of 1 MiB.
enum class HttpBody { kWhole, kLost, kInvalid };

[[nodiscard]] HttpBody ReadHttpBody(CByteSource& source, const HttpEnd& end, std::string& body);

/// Whether the header's status says that the body is not what was asked for. A header without a status line is taken.
[[nodiscard]] bool IsHttpRefusal(std::string_view header);

}  // namespace RMUP::Process
