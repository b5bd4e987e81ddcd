#include "process/update/UpdateInfoXml.h"

#include <algorithm>

#include "fuzz/Fuzz.h"

using namespace RMUP::Process;
using Fuzz::Require;

/// The update server's list of images, as each model of the device reads it.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(Fuzz::Text({data, size}));
    for (const bool human : {true, false}) {
        ImageInfos images;
        FillFromCatalogue(images, human ? Wire::Model::kHuman : Wire::Model::kVeterinary);
        const UpdateInfo info = ParseUpdateInfo(text, {human ? "Human" : "Veterinary", "N62"}, images);
        const auto& offers = info.offers;
        if (info.error == UpdateInfoError::kNoModels || info.error == UpdateInfoError::kOtherModels) {
            Require(offers.empty() && info.model.empty(), "without a model there are no offers");
            continue;
        }
        Require(info.model == "N62V" ? !human : human && (info.model == "N62" || info.model == "Human"),
                "the model is the device's");
        for (const ImageOffer& offer : offers) {
            Require(offer.name == images[offer.image].FileName, "an offer bears its name");
            Require(offer.path.starts_with('/') &&
                        std::ranges::none_of(offer.path, [](unsigned char c) { return c <= ' ' || c == 0x7F; }),
                    "a path fits a request line");
        }
    }
    return 0;
}
