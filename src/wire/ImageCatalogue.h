#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <utility>

#include "wire/PCCommand.h"

/// The eight software images. Their numbers are those of the device library, of ZELApp and of the log.
enum class ImageId : int { kBoot, kKernel, kRootFS, kApp, kQTE, kDSP, kXML, kSYS };

constexpr int NumberOf(ImageId image) {
    return static_cast<int>(image);
}

namespace Wire {

enum class Model { kHuman, kVeterinary };

/// A text of each model.
struct ModelText {
    const char* human = "";
    const char* veterinary = "";

    constexpr const char* Of(Model model) const { return model == Model::kHuman ? human : veterinary; }
};

/// How an image that is at hand comes to its place.
enum class Installation {
    kBlocks,   ///< block by block, through the device library
    kUnzip,    ///< unpacked into the bank of the partition that is not running
    kZELApp,   ///< ZELApp takes the temporary file
    kItsParts  ///< it brings others, which are installed by themselves
};

/// All that is fixed about an image. What it takes to add one is a row, and its ImageId.
struct ImageRow {
    ImageId id{};
    const char* name = "";         ///< what people call it
    const char* offeredName = "";  ///< the same in the log line of a PC's offer
    const char* historyName = "";  ///< in the update history; ZELApp shows it
    ModelText magic{};             ///< four characters that begin the update file
    ModelText fileName{};          ///< of the update file, on a stick and on the update server
    ModelText serverPath{};        ///< on the update server; empty when it is not taken from there
    const char* rawPath = "";      ///< temporary file for the image's data
    int versionPlace = -1;         ///< in the device library's list of versions; -1: not told
    unsigned offerBit = 0;     ///< in a PC's announcement and in the request for the image; 0: the PC does not send it
    unsigned versionItem = 0;  ///< in a PC's update information; 0 as above
    int blockPlace = 0;        ///< in the block of versions that an APP file ends with, from 1; 0: not in it
    bool isPartOfSYS = false;  ///< comes as a section of a SYS package, not as a file of its own
    bool isOfRelease = false;  ///< written only together with the others of the release
    bool isReported = false;   ///< its progress is told to ZELApp
    Installation installation = Installation::kBlocks;
};

// In the order of ImageId. The temporary files bear the Human name on both models, the DSP image has no name in the
// history and its own kind of file, and the XML archive lies beside the banks that it is for: ZELApp and the device's
// scripts know these names.
inline constexpr auto kImages = std::to_array<ImageRow>({
    {.id = ImageId::kBoot,
     .name = "BOOT",
     .historyName = "Boot",
     .magic = {"ZN6B", "ZV6B"},
     .fileName = {"zel_boot.n62.bin", "zel_boot.n62v.bin"},
     .rawPath = "/tmp/zel_boot.n62.raw",
     .versionPlace = 2,
     .isPartOfSYS = true},
    {.id = ImageId::kKernel,
     .name = "KERNEL",
     .historyName = "Kernel",
     .magic = {"ZN6K", "ZV6K"},
     .fileName = {"zel_kernel.n62.bin", "zel_kernel.n62v.bin"},
     .rawPath = "/tmp/zel_kernel.n62.raw",
     .versionPlace = 3,
     .isPartOfSYS = true},
    {.id = ImageId::kRootFS,
     .name = "ROOTFS",
     .historyName = "RootF/S",
     .magic = {"ZN6R", "ZV6R"},
     .fileName = {"zel_rootfs.n62.bin", "zel_rootfs.n62v.bin"},
     .rawPath = "/tmp/zel_rootfs.n62.raw",
     .versionPlace = 4,
     .isPartOfSYS = true},
    {.id = ImageId::kApp,
     .name = "APP",
     .offeredName = "App",
     .historyName = "Application",
     .magic = {"ZN6A", "ZV6A"},
     .fileName = {"zel_app.n62.bin", "zel_app.n62v.bin"},
     .serverPath = {"/n62/zel_app.n62.bin", "/n62v_vorn/zel_app.n62v.bin"},
     .rawPath = "/tmp/zel_app.n62.raw",
     .versionPlace = 0,
     .offerBit = 0x10,
     .versionItem = kItemAppVersion,
     .blockPlace = 1,
     .isOfRelease = true,
     .isReported = true},
    {.id = ImageId::kQTE,
     .name = "QTE",
     .historyName = "QTE",
     .magic = {"ZN6Q", "ZV6Q"},
     .fileName = {"zel_qte.n62.bin", "zel_qte.n62v.bin"},
     .rawPath = "/tmp/zel_qte.n62.raw",
     .versionPlace = 5,
     .isPartOfSYS = true},
    {.id = ImageId::kDSP,
     .name = "DSP",
     .offeredName = "DSP",
     .magic = {"ZN6D", "ZV6D"},
     .fileName = {"zel_dsp.n62.bin", "zel_dsp.n62v.bin"},
     .rawPath = "/tmp/zel_dsp.out",
     .offerBit = 0x20,
     .versionItem = kItemDSPVersion,
     .isReported = true,
     .installation = Installation::kZELApp},
    {.id = ImageId::kXML,
     .name = "XML",
     .offeredName = "XML",
     .historyName = "XML Archive",
     .magic = {"ZN6X", "ZV6X"},
     .fileName = {"zel_xml.n62.bin", "zel_xml.n62v.bin"},
     .serverPath = {"/n62/zel_xml.n62.bin", "/n62v_vorn/zel_xml.n62v.bin"},
     .rawPath = "/data/zel_xml.zip",
     .versionPlace = 7,
     .offerBit = 0x40,
     .versionItem = kItemXMLVersion,
     .blockPlace = 3,
     .isOfRelease = true,
     .isReported = true,
     .installation = Installation::kUnzip},
    {.id = ImageId::kSYS,
     .name = "SYS",
     .offeredName = "Sys",
     .historyName = "System",
     .magic = {"ZN6S", "ZV6S"},
     .fileName = {"zel_sys.n62.bin", "zel_sys.n62v.bin"},
     .serverPath = {"/n62/zel_sys.n62.bin", "/n62v_vorn/zel_sys.n62v.bin"},
     .rawPath = "/tmp/zel_sys.n62.raw",
     .versionPlace = 1,
     .offerBit = 0x08,
     .versionItem = kItemSYSVersion,
     .blockPlace = 2,
     .isOfRelease = true,
     .isReported = true,
     .installation = Installation::kItsParts},
});

inline constexpr std::size_t kImageCount = kImages.size();

constexpr const ImageRow& RowOf(ImageId image) {
    return kImages[static_cast<std::size_t>(image)];
}

static_assert(std::ranges::all_of(kImages, [](const ImageRow& row) { return &RowOf(row.id) == &row; }));

/// The images for which a column, or a function of the row, is not zero: in the order of its values, and where these
/// are the same in that of the catalogue.
template <auto Column>
constexpr auto ImagesBy() {
    constexpr auto kValue = [](const ImageRow& row) { return std::invoke(Column, row); };
    std::array<ImageId, std::ranges::count_if(kImages, [=](const ImageRow& row) { return kValue(row) != 0; })> images{};
    auto next = images.begin();
    for (const ImageRow& row : kImages) {
        if (kValue(row) != 0) {
            *next++ = row.id;
        }
    }
    std::ranges::sort(images, {}, [=](ImageId image) { return std::pair(kValue(RowOf(image)), image); });
    return images;
}

inline constexpr auto kAllImages = [] {
    std::array<ImageId, kImageCount> all{};
    std::ranges::transform(kImages, all.begin(), &ImageRow::id);
    return all;
}();
inline constexpr auto kSYSParts = ImagesBy<&ImageRow::isPartOfSYS>();
inline constexpr auto kReleaseImages = ImagesBy<&ImageRow::isOfRelease>();
inline constexpr auto kReportedImages = ImagesBy<&ImageRow::isReported>();

/// What stands in an APP file's block of versions, in its order there.
inline constexpr auto kBlockImages = ImagesBy<&ImageRow::blockPlace>();

/// What a PC may send, in the order in which the protocol has them.
inline constexpr auto kImagesOfPC = ImagesBy<&ImageRow::offerBit>();
static_assert(kImagesOfPC == ImagesBy<&ImageRow::versionItem>());

}  // namespace Wire
