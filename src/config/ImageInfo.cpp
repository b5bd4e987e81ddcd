#include "config/ImageInfo.h"

#include "common/Constants.h"

namespace {

struct CatalogueEntry {
    const char* humanServerPath;
    const char* veterinaryServerPath;
    const char* displayName;
    const char* rawPath;
};

// In the order of ImageId. The unpacked files bear the Human name on both models, the DSP image has no display name and
// its own kind of file, and the XML archive unpacks beside the banks that it is for: ZELApp and the device's scripts
// know these names.
constexpr CatalogueEntry kCatalogue[kImageCount] = {
    {"", "", "Boot", "/tmp/zel_boot.n62.raw"},
    {"", "", "Kernel", "/tmp/zel_kernel.n62.raw"},
    {"", "", "RootF/S", "/tmp/zel_rootfs.n62.raw"},
    {"/n62/zel_app.n62.bin", "/n62v_vorn/zel_app.n62v.bin", "Application", "/tmp/zel_app.n62.raw"},
    {"", "", "QTE", "/tmp/zel_qte.n62.raw"},
    {"", "", "", "/tmp/zel_dsp.out"},
    {"/n62/zel_xml.n62.bin", "/n62v_vorn/zel_xml.n62v.bin", "XML Archive", "/data/zel_xml.zip"},
    {"/n62/zel_sys.n62.bin", "/n62v_vorn/zel_sys.n62v.bin", "System", "/tmp/zel_sys.n62.raw"},
};

}  // namespace

void ImageInfo::Clear() {
    IsFile = false;
    NeedUpdate = false;
    InPackage = false;
    FileSize = 0;
    Download = 0;
    Written = 0;
    Progress = 0;
}

void FillFromCatalogue(ImageInfos& images, bool human) {
    for (std::size_t i = 0; i < images.size(); ++i) {
        const CatalogueEntry& entry = kCatalogue[i];
        const Wire::ImageFile& file = (human ? Wire::kHumanFiles : Wire::kVeterinaryFiles)[i];
        images[i].Magic = file.magic;
        images[i].FileName = file.fileName;
        images[i].FilePath = std::string(kUSBMountPoint) + file.fileName;
        images[i].DisplayName = entry.displayName;
        images[i].ServerPath = human ? entry.humanServerPath : entry.veterinaryServerPath;
        images[i].RawPath = entry.rawPath;
    }
}
