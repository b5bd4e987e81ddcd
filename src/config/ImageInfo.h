#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "platform/Text.h"
#include "wire/ImageCatalogue.h"
#include "wire/UpdateFormat.h"

using Wire::HeaderTail;

/// What is known about one image of the update at hand. The flags and counters are used by the request handlers and the
/// update worker at once. The texts are set before any worker runs; only ServerPath changes later, and only the update
/// worker uses it. The versions and the header tail are reached through CDeviceInfo alone, which locks them.
struct ImageInfo {
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

    /// Sets the flags and counters to 0.
    void Clear();

private:
    friend class CDeviceInfo;

    QENFx::Common::Version CurrentVersion;  ///< the installed version
    QENFx::Common::Version NewVersion;      ///< the version of the update file at hand
    HeaderTail Tail{};                      ///< the end of that file's header
};

using ImageInfos = std::array<ImageInfo, kImageCount>;

/// Fills the texts of all records with those of the Human or the Veterinary model.
void FillFromCatalogue(ImageInfos& images, bool human);
