#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/Text.h"
#include "wire/CImageTable.h"
#include "wire/ImageCatalogue.h"
#include "wire/UpdateFormat.h"

using Wire::HeaderTail;

/// What is known about one image of the update at hand. The flags and counters are used by the request handlers and the
/// update worker at once. The texts are set before any worker runs; only ServerPath changes later, and only the update
/// worker uses it. The versions and the header tail are handed out by copy, under the record's own lock.
class ImageInfo {
public:
    using Version = QENFx::Common::Version;

    explicit ImageInfo(const Wire::ImageRow& row) : Row(row) {}

    const Wire::ImageRow& Row;              ///< what is fixed about the image
    std::atomic<bool> IsFile{false};        ///< an update file of this image is at hand
    std::atomic<bool> NeedUpdate{false};    ///< the image is to be written
    std::atomic<bool> InPackage{false};     ///< what is at hand came as a section of the SYS package
    std::atomic<std::int32_t> FileSize{0};  ///< bytes of image data that the update file announces
    std::atomic<std::int32_t> Download{0};  ///< bytes stored in the temporary file so far
    std::atomic<std::int32_t> Written{0};   ///< bytes written to the device so far
    std::atomic<std::int32_t> Progress{0};  ///< percent last reported to ZELApp
    std::string Magic;                      ///< four characters that begin the image's update file
    std::string FileName;                   ///< name of the update file, as the update server lists it
    std::string FilePath;                   ///< the update file on the USB stick
    std::string DisplayName;                ///< name in the update history; empty for DSP
    std::string ServerPath;                 ///< path on the update server; empty for images that it does not offer
    std::string RawPath;                    ///< temporary file for the image's data

    /// Its number in the catalogue.
    int Number() const { return NumberOf(Row.id); }

    /// Sets the flags and counters to 0.
    void Clear();

    /// The installed version.
    Version GetCurrentVersion() const;
    void SetCurrentVersion(const Version& version);

    /// The version of the update file at hand.
    Version GetNewVersion() const;
    void SetNewVersion(const Version& version);

    /// The end of that file's header, as it was read. Not used by the service itself.
    HeaderTail GetTail() const;
    void SetTail(const HeaderTail& tail);

private:
    mutable std::mutex mutex_;

    // Behind the mutex.
    Version currentVersion_;
    Version newVersion_;
    HeaderTail tail_{};
};

using ImageInfos = Wire::CImageTable<ImageInfo>;

/// Fills the texts of all records with those of the model.
void FillFromCatalogue(ImageInfos& images, Wire::Model model);
