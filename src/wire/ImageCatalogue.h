#pragma once

#include <array>

/// The eight software images, in the order of the catalogue.
enum ImageId : int {
    kBootImage = 0,
    kKernelImage = 1,
    kRootFSImage = 2,
    kAppImage = 3,
    kQTEImage = 4,
    kDSPImage = 5,
    kXMLImage = 6,
    kSYSImage = 7,
};

inline constexpr int kImageCount = 8;

namespace Wire {

/// By which an image's update file is known.
struct ImageFile {
    const char* magic;     ///< four characters that begin the file
    const char* fileName;  ///< its name, on a stick and on the update server
};

/// The update files of one model, in the order of ImageId.
using ImageFiles = std::array<ImageFile, kImageCount>;

inline constexpr ImageFiles kHumanFiles = {{
    {"ZN6B", "zel_boot.n62.bin"},
    {"ZN6K", "zel_kernel.n62.bin"},
    {"ZN6R", "zel_rootfs.n62.bin"},
    {"ZN6A", "zel_app.n62.bin"},
    {"ZN6Q", "zel_qte.n62.bin"},
    {"ZN6D", "zel_dsp.n62.bin"},
    {"ZN6X", "zel_xml.n62.bin"},
    {"ZN6S", "zel_sys.n62.bin"},
}};

inline constexpr ImageFiles kVeterinaryFiles = {{
    {"ZV6B", "zel_boot.n62v.bin"},
    {"ZV6K", "zel_kernel.n62v.bin"},
    {"ZV6R", "zel_rootfs.n62v.bin"},
    {"ZV6A", "zel_app.n62v.bin"},
    {"ZV6Q", "zel_qte.n62v.bin"},
    {"ZV6D", "zel_dsp.n62v.bin"},
    {"ZV6X", "zel_xml.n62v.bin"},
    {"ZV6S", "zel_sys.n62v.bin"},
}};

}  // namespace Wire
