#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "process/update/CByteSource.h"

/// What is understood of the update server's answers: the end of the header, and the length of the body. Answers in
/// pieces ("chunked") and redirections are not; they have no length, or not the body that is asked for.
namespace RMUP::Process {

/// Reads up to and with the empty line that ends the header, and no byte further. False when the source fails before,
/// or the header is longer than 64 KiB.
[[nodiscard]] bool ReadHttpHeader(CByteSource& source, std::string& header);

enum class HttpLength { kGood, kMissing, kInvalid };

/// The value of "Content-Length". Invalid: negative, no number, or more than a document of 16 MiB.
[[nodiscard]] HttpLength ParseContentLength(std::string_view header, std::size_t& length);

/// Reads a body of this length. False, with the errno of CByteSource::Take, when the source ends or fails before.
[[nodiscard]] bool ReadHttpBody(CByteSource& source, std::size_t length, std::string& body);

/// Whether the header's status says that the body is not what was asked for. A header without a status line is taken.
[[nodiscard]] bool IsHttpRefusal(std::string_view header);

}  // namespace RMUP::Process
