#pragma once

#include "process/update/CFileSource.h"

namespace RMUP::Process {

/// Whether the zip archive may be unpacked over a directory: it brings regular files and directories only, under paths
/// that stay in there. A link that one archive leaves behind would lead the files of the next one anywhere, and `unzip`
/// makes links without asking. It is also no for an archive whose list of entries is not laid out plainly: `unzip`
/// might find another list in it. A file in which `unzip` finds no archive at all may be given to it, since it does
/// nothing.
[[nodiscard]] bool MayBeUnpacked(CFileSource& archive);

}  // namespace RMUP::Process
