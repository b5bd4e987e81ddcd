#include "config/ImageInfo.h"

#include "common/Constants.h"

namespace {

struct ModelTexts {
    const char* magic;
    const char* fileName;
    const char* serverPath;
};

struct CatalogueEntry {
    ModelTexts human;
    ModelTexts veterinary;
    const char* displayName;
    const char* rawPath;
};

// In the order of ImageId. The unpacked files bear the Human name on both models, the DSP image has no display name and
// its own kind of file, and the XML archive unpacks beside the banks that it is for: ZELApp and the device's scripts
// know these names.
constexpr CatalogueEntry kCatalogue[kImageCount] = {
    {{"ZN6B", "zel_boot.n62.bin", ""}, {"ZV6B", "zel_boot.n62v.bin", ""}, "Boot", "/tmp/zel_boot.n62.raw"},
    {{"ZN6K", "zel_kernel.n62.bin", ""}, {"ZV6K", "zel_kernel.n62v.bin", ""}, "Kernel", "/tmp/zel_kernel.n62.raw"},
    {{"ZN6R", "zel_rootfs.n62.bin", ""}, {"ZV6R", "zel_rootfs.n62v.bin", ""}, "RootF/S", "/tmp/zel_rootfs.n62.raw"},
    {{"ZN6A", "zel_app.n62.bin", "/n62/zel_app.n62.bin"},
     {"ZV6A", "zel_app.n62v.bin", "/n62v_vorn/zel_app.n62v.bin"},
     "Application",
     "/tmp/zel_app.n62.raw"},
    {{"ZN6Q", "zel_qte.n62.bin", ""}, {"ZV6Q", "zel_qte.n62v.bin", ""}, "QTE", "/tmp/zel_qte.n62.raw"},
    {{"ZN6D", "zel_dsp.n62.bin", ""}, {"ZV6D", "zel_dsp.n62v.bin", ""}, "", "/tmp/zel_dsp.out"},
    {{"ZN6X", "zel_xml.n62.bin", "/n62/zel_xml.n62.bin"},
     {"ZV6X", "zel_xml.n62v.bin", "/n62v_vorn/zel_xml.n62v.bin"},
     "XML Archive",
     "/data/zel_xml.zip"},
    {{"ZN6S", "zel_sys.n62.bin", "/n62/zel_sys.n62.bin"},
     {"ZV6S", "zel_sys.n62v.bin", "/n62v_vorn/zel_sys.n62v.bin"},
     "System",
     "/tmp/zel_sys.n62.raw"},
};

}  // namespace

void ImageInfo::Clear() {
    IsFile = false;
    NeedUpdate = false;
    FileSize = 0;
    Download = 0;
    Written = 0;
    Progress = 0;
}

void FillFromCatalogue(ImageInfos& images, bool human) {
    for (std::size_t i = 0; i < images.size(); ++i) {
        const CatalogueEntry& entry = kCatalogue[i];
        const ModelTexts& texts = human ? entry.human : entry.veterinary;
        images[i].Magic = texts.magic;
        images[i].FileName = texts.fileName;
        images[i].FilePath = std::string(kUSBMountPoint) + texts.fileName;
        images[i].DisplayName = entry.displayName;
        images[i].ServerPath = texts.serverPath;
        images[i].RawPath = entry.rawPath;
    }
}
