#include "process/update/CPackageReader.h"

#include <algorithm>
#include <utility>

namespace RMUP::Process {

CPackageReader::Section CPackageReader::ReadMagic() {
    header_ = {};
    if (!Process::ReadMagic(source_, header_.magic)) {
        return Section::kCut;
    }
    image_ = FindImage(images_, header_.magic);
    if (image_ == nullptr) {
        return Section::kForeign;
    }
    const bool wanted = image_->Row.isPartOfSYS && !std::exchange(come_[image_->Row.id], true);
    return wanted ? Section::kPart : Section::kWrong;
}

HeaderField CPackageReader::ReadHeader() {
    return ReadHeaderAfterMagic(source_, header_);
}

bool CPackageReader::IsComplete() const {
    return std::ranges::all_of(Wire::kSYSParts, [this](ImageId part) { return come_[part]; });
}

}  // namespace RMUP::Process
