#include "core/Routes.h"
#include "fuzz/Device.h"
#include "process/update/CUpdateCommand.h"

using Fuzz::Require;

/// A received SYS package, taken apart into the files of its images.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Device& device = Fuzz::Device::Get();
    device.Reset(0);
    const std::string package(Fuzz::Text({data, size}));
    ImageInfos& images = CDeviceInfo::GetInstance()->GetImageInfo();
    UnitTest::WriteFile(images[ImageId::kSYS].RawPath, package);

    const int result = CUpdateCommand(Service()).SplitSYSUpdateFile();
    Require(result == 0 || result == -1, "the split succeeds or fails");
    const auto parts = std::ranges::count_if(images, [](const ImageInfo& image) { return image.InPackage.load(); });
    Require(result == -1 || parts == 4, "a package has its four parts");
    for (const ImageInfo& image : images) {
        if (image.Row.id == ImageId::kSYS || !std::filesystem::exists(image.RawPath)) {
            continue;
        }
        const std::string content = UnitTest::ReadFile(image.RawPath);
        Require(content.empty() || package.find(content) != std::string::npos, "an image holds bytes of the package");
        Require(image.Download <= image.FileSize, "no more is taken than announced");
        Require(result == -1 || std::cmp_equal(content.size(), image.FileSize.load()), "an image is whole");
    }
    Require(UnitTest::ReadFile(images[ImageId::kSYS].RawPath) == package, "the package stays as it came");
    device.RequireOrder();
    return 0;
}
