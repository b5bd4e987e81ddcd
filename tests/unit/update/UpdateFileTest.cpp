#include "process/update/UpdateFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "UpdateFiles.h"
#include "process/update/CFileSource.h"
#include "process/update/COutputFile.h"

using namespace RMUP::Process;
using QENFx::Common::Version;
using UpdateTest::Bytes;
using UpdateTest::CTextSource;
using UpdateTest::Header;

namespace {

// Faults: a field at a wrong place or in the wrong byte order, a header that is cut short taken for whole, a version
// that is no version kept as text, the two readers of a header disagreeing.
TEST(UpdateFile, Header) {
    const std::string bytes = Header("ZN6K", -2, "1.02.03.0004");
    const HeaderField missing[] = {HeaderField::kSize, HeaderField::kVersion, HeaderField::kTail, HeaderField::kNone};
    const std::size_t ends[] = {7, 23, 39, 40};
    for (std::size_t i = 0; i < std::size(ends); ++i) {
        CTextSource source(bytes.substr(0, ends[i]));
        UpdateHeader header;
        ASSERT_TRUE(ReadMagic(source, header.magic));
        EXPECT_EQ(ReadHeaderAfterMagic(source, header), missing[i]) << ends[i];
    }
    CTextSource cut("ZN6");
    std::string magic;
    EXPECT_FALSE(ReadMagic(cut, magic));

    const UpdateHeader header = ParseUpdateHeader(Bytes(bytes).first<kUpdateHeaderSize>());
    EXPECT_EQ(header.magic, "ZN6K");
    EXPECT_EQ(header.size, -2);
    EXPECT_EQ(header.version, Version("1.2.3.4"));
    EXPECT_EQ(std::string(header.tail.begin(), header.tail.end()), "tail of 16 bytes");
    EXPECT_EQ(ParseVersionField(Bytes("1'); DROP TABLE ")), Version());
}

// Faults: one text that fails hides the next, a block that is cut short taken for one without package information.
TEST(UpdateFile, PackageBlock) {
    std::string block = "1.00.00.0001";
    block.resize(16);
    block += "2.00.00.0002";
    block.resize(32);
    block += "3.00.00.0003";
    block.resize(48);
    CTextSource whole(block);
    const PackageBlock read = ReadPackageBlock(whole);
    EXPECT_TRUE(read.hasApp && read.hasSys && read.hasXml);
    EXPECT_EQ(read.versions, (PackageVersions{Version("1.0.0.1"), Version("2.0.0.2"), Version("3.0.0.3")}));

    CTextSource partly(block.substr(0, 20));
    const PackageBlock part = ReadPackageBlock(partly);
    EXPECT_TRUE(part.hasApp && !part.hasSys && !part.hasXml);
}

// Faults: equal versions written by the strict rule or left by the inclusive one, a release torn apart, marks counted
// once instead of always two, an unrelated image coupled.
TEST(UpdateFile, Rules) {
    const Version one("1.0.0.0");
    EXPECT_FALSE(IsToBeWritten(Comparison::kStrict, one, one));
    EXPECT_TRUE(IsToBeWritten(Comparison::kInclusive, one, one));
    EXPECT_FALSE(IsToBeWritten(Comparison::kInclusive, one, Version("0.99.99.9999")));

    ImageInfos images;
    images[kDSPImage].NeedUpdate = true;
    EXPECT_EQ(CoupleRelease(images), 0);
    EXPECT_FALSE(images[kAppImage].NeedUpdate);
    images[kXMLImage].NeedUpdate = true;
    EXPECT_EQ(CoupleRelease(images), 2);
    EXPECT_TRUE(images[kSYSImage].NeedUpdate && images[kAppImage].NeedUpdate && images[kXMLImage].NeedUpdate);
    EXPECT_EQ(CoupleRelease(images), 2);

    FillFromCatalogue(images, true);
    CPackageSections sections;
    EXPECT_EQ(sections.Take(images, "ZN6Q"), kQTEImage);
    for (const char* wrong : {"ZN6Q", "ZN6S", "ZN6A", "ZV6K"}) {
        EXPECT_EQ(sections.Take(images, wrong), -1) << wrong;
    }
    EXPECT_EQ(FindImage(images, "ZN6S"), kSYSImage);
    EXPECT_EQ(FindImage(images, "ZN6"), -1);
}

// Faults: rounding up, a report without change, progress that falls or leaves its byte, an image without mark reported.
TEST(UpdateFile, Progress) {
    EXPECT_EQ(ProgressOf(1000, 0, 1000), 20);
    EXPECT_EQ(ProgressOf(1000, 999, 1000), 99);
    EXPECT_EQ(ProgressOf(1000, 1000, 1000), 100);
    EXPECT_EQ(ProgressOf(2147483647, 2147483647, 1), 100);
    EXPECT_EQ(ProgressOf(5, 5, 0), 0);

    ImageInfos images;
    images[kAppImage].FileSize = 100;
    images[kAppImage].Download = 100;
    EXPECT_FALSE(RaiseProgress(images));
    images[kAppImage].NeedUpdate = true;
    EXPECT_TRUE(RaiseProgress(images));
    EXPECT_FALSE(RaiseProgress(images));
    images[kAppImage].Download = 50;
    images[kXMLImage].NeedUpdate = true;
    images[kXMLImage].FileSize = 100;
    images[kXMLImage].Download = 50;
    EXPECT_TRUE(RaiseProgress(images));
    EXPECT_EQ(images[kAppImage].Progress, 20);
    EXPECT_EQ(images[kXMLImage].Progress, 10);
}

// Faults: bytes lost or repeated where a buffer ends, a place told or sought without regard to what was read ahead, a
// file on a full device taken for whole.
TEST(UpdateFile, FilesThroughBuffers) {
    const auto path = std::filesystem::temp_directory_path() / ("update_file_test." + std::to_string(getpid()));
    const std::string data = UpdateTest::ImageData(300001, 1);
    {
        COutputFile file(path.c_str());
        ASSERT_TRUE(file.IsOpen());
        for (std::size_t offset = 0; offset < data.size(); offset += 4000) {
            ASSERT_TRUE(file.Write(Bytes(data).subspan(offset, std::min<std::size_t>(4000, data.size() - offset))));
        }
        ASSERT_TRUE(file.Close());
    }
    CFileSource source(path.c_str());
    std::string read;
    for (auto piece = source.Take(4096); !piece.empty(); piece = source.Take(4096)) {
        read.append(piece.begin(), piece.end());
        ASSERT_EQ(source.Tell(), static_cast<off_t>(read.size()));
    }
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(read == data);
    ASSERT_TRUE(source.Seek(150000));
    EXPECT_EQ(source.Take(1)[0], static_cast<std::uint8_t>(data[150000]));
    EXPECT_FALSE(source.Seek(-1));
    EXPECT_TRUE(source.Skip(150000));
    EXPECT_FALSE(source.Skip(1));
    std::filesystem::remove(path);

    COutputFile full("/dev/full");
    EXPECT_TRUE(full.Write(Bytes("fits the buffer")));
    EXPECT_FALSE(full.Close());
}

}  // namespace
