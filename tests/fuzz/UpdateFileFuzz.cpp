#include "process/update/UpdateFile.h"

#include <sys/mman.h>

#include "fuzz/Fuzz.h"
#include "process/update/XmlArchive.h"
#include "unit/update/UpdateFiles.h"

using namespace RMUP::Process;
using Fuzz::Require;
using UpdateTest::CTextSource;

namespace {

/// The longest version texts do not fit the field of the protocols and are cut there.
void CheckVersion(const QENFx::Common::Version& version) {
    Require(std::string_view(version.getVersion()).size() > kVersionSize ||
                ParseVersionField(VersionField(version)) == version,
            "a version survives its field");
}

/// The list of an archive's entries, where there is one.
void CheckArchive(std::string_view bytes) {
    const CDescriptor file(memfd_create("archive", MFD_CLOEXEC));
    Require(write(file.Get(), bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "there is memory");
    CFileSource archive(("/proc/self/fd/" + std::to_string(file.Get())).c_str());
    Require(MayBeUnpacked(archive) || bytes.find("PK\5\6") != std::string_view::npos, "only an archive is refused");
}

}  // namespace

/// The header, the package block and the archive of an update file, from a source that gives pieces of the size of the
/// first byte.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::Bytes input(data, size);
    const std::size_t piece = Fuzz::TakeByte(input) + std::size_t{1};

    CTextSource source(std::string(Fuzz::Text(input)), piece);
    UpdateHeader header;
    const bool whole = ReadMagic(source, header.magic) && ReadHeaderAfterMagic(source, header) == HeaderField::kNone;
    Require(whole == (input.size() >= kUpdateHeaderSize), "a header is whole when all its bytes came");
    Require(header.magic.size() <= kMagicSize, "a magic has four characters at most");
    CheckVersion(header.version);
    if (whole) {
        const UpdateHeader inMemory = ParseUpdateHeader(input.first<kUpdateHeaderSize>());
        Require(inMemory.magic == header.magic && inMemory.size == header.size && inMemory.version == header.version &&
                    inMemory.tail == header.tail,
                "both readers of a header agree");
        Require(source.Skip(input.size() - kUpdateHeaderSize) && source.Take(1).empty(),
                "reading a header takes its bytes and no more");
    }
    const int progress =
        ProgressOf(static_cast<std::int32_t>(piece), static_cast<std::int32_t>(input.size()), header.size);
    Require(progress >= 0 && progress <= 100, "progress is a percentage");

    CTextSource blockSource(std::string(Fuzz::Text(input)), piece);
    const PackageBlock block = ReadPackageBlock(blockSource);
    Require(block.hasApp == (input.size() >= kVersionSize) && block.hasSys == (input.size() >= 2 * kVersionSize) &&
                block.hasXml == (input.size() >= 3 * kVersionSize),
            "a version is there when all its bytes came");
    CheckVersion(block.versions.app);
    CheckVersion(block.versions.sys);
    CheckVersion(block.versions.xml);
    CheckArchive(Fuzz::Text(input));
    return 0;
}
