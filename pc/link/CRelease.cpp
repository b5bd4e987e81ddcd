#include "link/CRelease.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <optional>
#include <utility>

#include "wire/CImageTable.h"
#include "wire/UpdateFormat.h"

namespace ZELPC {

namespace {

namespace fs = std::filesystem;
using Version = std::array<std::uint32_t, 4>;

std::optional<Version> ParseVersion(std::string_view text) {
    constexpr std::size_t kMostDigits = 9;
    Version version{};
    for (std::size_t i = 0; i < version.size(); ++i) {
        const bool last = i + 1 == version.size();
        const std::size_t end = last ? text.size() : text.find('.');
        if (end == std::string_view::npos || end == 0 || end > kMostDigits) {
            return std::nullopt;
        }
        const auto [stop, error] = std::from_chars(text.data(), text.data() + end, version[i]);
        if (error != std::errc() || stop != text.data() + end) {
            return std::nullopt;
        }
        text.remove_prefix(last ? end : end + 1);
    }
    return version;
}

std::string NameOfFile(const fs::path& path) {
    return path.filename().string();
}

/// An update file that is looked through.
class CFile {
public:
    explicit CFile(const fs::path& path) : name_(NameOfFile(path)), stream_(path, std::ios::binary) {
        std::error_code error;
        size_ = static_cast<std::int64_t>(fs::file_size(path, error));
        if (!stream_ || error) {
            Refuse("cannot be read");
        }
    }

    std::int64_t Size() const { return size_; }

    [[noreturn]] void Refuse(const std::string& why) const { throw ReleaseError(name_ + " " + why); }

    /// The bytes at `offset`, or nothing when the file does not hold them all.
    template <std::size_t Count>
    std::optional<std::array<std::uint8_t, Count>> At(std::int64_t offset) {
        std::array<std::uint8_t, Count> bytes{};
        stream_.clear();
        if (offset < 0 || !stream_.seekg(offset) ||
            !stream_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(Count))) {
            return std::nullopt;
        }
        return bytes;
    }

    /// The header at `offset`, of an image whose data the file holds too.
    Wire::UpdateHeaderFields HeaderAt(std::int64_t offset) {
        const auto bytes = At<Wire::kUpdateHeaderSize>(offset);
        if (!bytes) {
            Refuse("ends within a header");
        }
        auto header = Wire::ParseUpdateHeader(*bytes);
        if (header.size < 0 || header.size > size_ - offset - Wire::kUpdateHeaderSize) {
            Refuse("is shorter than its header says");
        }
        return header;
    }

private:
    std::string name_;
    std::ifstream stream_;
    std::int64_t size_ = 0;
};

void CheckSections(CFile& file, Wire::Model model) {
    Wire::CImageTable<bool> seen;
    std::int64_t offset = Wire::kUpdateHeaderSize;
    for (int i = 0; i < Wire::kSYSSectionCount; ++i) {
        const Wire::UpdateHeaderFields header = file.HeaderAt(offset);
        const auto section = std::ranges::find_if(
            Wire::kSYSParts, [&](ImageId image) { return header.magic == Wire::RowOf(image).magic.Of(model); });
        if (section == Wire::kSYSParts.end() || std::exchange(seen[*section], true)) {
            file.Refuse("does not hold boot, kernel, rootfs and QTE, each once");
        }
        offset += Wire::kUpdateHeaderSize + header.size;
    }
}

/// The versions that APP says belong together. Nothing when it is an old image that does not say.
std::optional<Wire::CImageTable<Version>> PackageVersions(const fs::path& app, std::int64_t size) {
    CFile file(app);
    Wire::CImageTable<Version> versions;
    std::int64_t offset = Wire::PackageBlockOffset(static_cast<std::int32_t>(size));
    for (const ImageId image : Wire::kBlockImages) {
        const auto field = file.At<Wire::kVersionSize>(offset);
        if (!field) {
            return std::nullopt;
        }
        versions[image] = ParseVersion(Wire::FieldText(*field)).value_or(Version{});
        offset += static_cast<std::int64_t>(Wire::kVersionSize);
    }
    return versions == Wire::CImageTable<Version>() ? std::nullopt : std::optional(versions);
}

ReleaseFile ReadFile(const fs::path& path, const Wire::ImageRow& image, Wire::Model model) {
    CFile file(path);
    const Wire::UpdateHeaderFields header = file.HeaderAt(0);
    if (header.magic != image.magic.Of(model)) {
        file.Refuse(std::string("is no ") + image.name + " file of this model");
    }
    if (header.size != file.Size() - Wire::kUpdateHeaderSize) {
        file.Refuse("is longer than its header says");
    }
    if (!ParseVersion(header.version)) {
        file.Refuse("has no version");
    }
    if (image.installation == Wire::Installation::kItsParts) {
        CheckSections(file, model);
    }
    return {path, header.version, header.size};
}

void CheckTogether(const std::map<ImageId, ReleaseFile>& files) {
    const auto has = [&](ImageId image) { return files.contains(image); };
    if (std::ranges::none_of(Wire::kReleaseImages, has)) {
        return;
    }
    if (!std::ranges::all_of(Wire::kReleaseImages, has)) {
        throw ReleaseError("SYS, APP and XML belong together, but one of them is missing");
    }
    const ReleaseFile& app = files.at(ImageId::kApp);
    if (const auto versions = PackageVersions(app.path, app.size)) {
        const auto differs = [&](ImageId image) { return (*versions)[image] != ParseVersion(files.at(image).version); };
        if (std::ranges::any_of(Wire::kBlockImages, differs)) {
            throw ReleaseError("SYS, APP and XML are not of one release: APP names other versions");
        }
    }
}

}  // namespace

std::int64_t ReleaseFile::FileSize() const {
    return Wire::kUpdateHeaderSize + size;
}

CRelease CRelease::Read(const fs::path& folder) {
    CRelease release;
    bool human = false;
    for (const Wire::Model model : {Wire::Model::kHuman, Wire::Model::kVeterinary}) {
        for (const ImageId image : kSent) {
            const fs::path path = folder / Wire::RowOf(image).fileName.Of(model);
            std::error_code error;
            if (!fs::exists(path, error)) {
                continue;
            }
            (model == Wire::Model::kHuman ? human : release.veterinary_) = true;
            if (human && release.veterinary_) {
                throw ReleaseError("there are files of both models");
            }
            release.files_[image] = ReadFile(path, Wire::RowOf(image), model);
        }
    }
    if (release.files_.empty()) {
        throw ReleaseError("there is no update file in " + folder.string());
    }
    CheckTogether(release.files_);
    return release;
}

void CRelease::RequireFor(const std::string& model) const {
    const bool veterinary = model.starts_with("N62V");
    if (!model.empty() && veterinary != veterinary_) {
        throw ReleaseError(std::string("the release is for ") + (veterinary_ ? "Veterinary" : "Human") +
                           " analyzers, but this one is a " + (veterinary ? "Veterinary" : "Human") + " (" + model +
                           ")");
    }
}

bool SameVersion(const std::string& left, const std::string& right) {
    const auto version = ParseVersion(left);
    return version && version == ParseVersion(right);
}

}  // namespace ZELPC
