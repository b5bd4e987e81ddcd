#pragma once

#include "config/ImageInfo.h"
#include "process/update/CByteSource.h"
#include "process/update/UpdateFile.h"

namespace RMUP::Process {

/// Takes a SYS package apart, section by section, wherever its bytes come from. One object for one reading. In the
/// place of one of its parts nothing else may come: the partition that the package is written to would be left without
/// that part. The data of a section is the caller's to read, between two sections.
class CPackageReader {
public:
    CPackageReader(CByteSource& source, ImageInfos& images) : source_(source), images_(images) {}

    enum class Section {
        kPart,     ///< one of the four, which has not come before
        kForeign,  ///< of no image that there is
        kWrong,    ///< of an image that has no place here, or not once more
        kCut       ///< the source ended or failed
    };

    /// Reads the magic of the next section.
    [[nodiscard]] Section ReadMagic();

    /// Reads what follows the magic; as ReadHeaderAfterMagic.
    [[nodiscard]] HeaderField ReadHeader();

    /// The header of the section, as far as it was read.
    const UpdateHeader& Header() const { return header_; }

    /// The image of the section; only of one that is a part.
    ImageInfo& Image() const { return *image_; }

    /// Whether all four have come.
    [[nodiscard]] bool IsComplete() const;

private:
    CByteSource& source_;
    ImageInfos& images_;
    Wire::CImageTable<bool> come_;
    UpdateHeader header_;
    ImageInfo* image_ = nullptr;
};

}  // namespace RMUP::Process
