#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include "wire/ImageCatalogue.h"

namespace ZELPC {

/// Where an image stands among those that are sent: in the order in which an analyzer asks for the release; what it
/// does not ask for comes after that. 0: it is not sent.
constexpr unsigned SendingPlace(const Wire::ImageRow& row) {
    return row.offerBit == 0 || row.isOfRelease ? row.offerBit : row.offerBit + 0x100;
}

inline constexpr auto kSent = Wire::ImagesBy<&SendingPlace>();

/// A folder does not hold a release that may be sent; the text says why, for people.
class ReleaseError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One update file of a release.
struct ReleaseFile {
    std::filesystem::path path;
    std::string version;    ///< as in the file's header
    std::int64_t size = 0;  ///< bytes of image data that follow the header
    std::int64_t FileSize() const;
};

/// The update files in a folder that belong together: SYS, APP and XML of one release, or DSP, or all four, of one
/// model. Read once and checked whole; what the files hold is read again when it is sent.
class CRelease {
public:
    /// Looks through the files with the names of the catalogue. Throws ReleaseError when there is none, when they are
    /// of both models, SYS, APP and XML are not together, a file is not what its name says, is shorter or longer than
    /// its header says, the package in SYS does not hold its four sections, or the versions are not those that APP says
    /// belong together.
    [[nodiscard]] static CRelease Read(const std::filesystem::path& folder);

    /// By image; only such as are sent.
    const std::map<ImageId, ReleaseFile>& Files() const { return files_; }

    bool IsVeterinary() const { return veterinary_; }

    /// Throws ReleaseError when an analyzer of this model cannot use the release. Of an empty text nothing is known.
    void RequireFor(const std::string& model) const;

private:
    std::map<ImageId, ReleaseFile> files_;
    bool veterinary_ = false;
};

/// Whether two version texts say the same version: "1.2.3.4" and "1.02.03.0004" do. What is no version is none.
[[nodiscard]] bool SameVersion(const std::string& left, const std::string& right);

/// "SYS", "APP", "DSP", "XML": what people call an image.
[[nodiscard]] const char* NameOf(ImageId image);

}  // namespace ZELPC
