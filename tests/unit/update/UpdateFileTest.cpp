#include "process/update/UpdateFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "process/update/CFileSource.h"
#include "process/update/COutputFile.h"

using namespace RMUP::Process;

namespace {

// Faults: rounding up, a sum that overflows, a report without change, progress that falls or leaves its byte, an image
// without mark reported.
TEST(UpdateFile, Progress) {
    EXPECT_EQ(ProgressOf(1000, 0, 1000), 20);
    EXPECT_EQ(ProgressOf(1000, 999, 1000), 99);
    EXPECT_EQ(ProgressOf(1000, 1000, 1000), 100);
    EXPECT_EQ(ProgressOf(2147483647, 2147483647, 1), 100);
    EXPECT_EQ(ProgressOf(5, 5, 0), 0);

    ImageInfos images;
    AddBytes(images[ImageId::kSYS].Written, 10);
    EXPECT_EQ(images[ImageId::kSYS].Written, 10);
    AddBytes(images[ImageId::kSYS].Written, std::int64_t{2147483647} + kUpdateHeaderSize);
    EXPECT_EQ(images[ImageId::kSYS].Written, 2147483647);
    images[ImageId::kApp].FileSize = 100;
    images[ImageId::kApp].Download = 100;
    EXPECT_FALSE(RaiseProgress(images));
    images[ImageId::kApp].NeedUpdate = true;
    EXPECT_TRUE(RaiseProgress(images));
    EXPECT_FALSE(RaiseProgress(images));
    images[ImageId::kApp].Download = 50;
    images[ImageId::kXML].NeedUpdate = true;
    images[ImageId::kXML].FileSize = 100;
    images[ImageId::kXML].Download = 50;
    EXPECT_TRUE(RaiseProgress(images));
    EXPECT_EQ(images[ImageId::kApp].Progress, 20);
    EXPECT_EQ(images[ImageId::kXML].Progress, 10);
}

// Faults: bytes lost or repeated where a buffer ends, a place told or sought without regard to what was read ahead, a
// file that somebody else put there written to or waited for.
TEST(UpdateFile, FilesThroughBuffers) {
    const auto path = std::filesystem::temp_directory_path() / ("update_file_test." + std::to_string(getpid()));
    std::vector<std::uint8_t> data;
    for (std::size_t i = 0; i < 300001; ++i) {
        data.push_back(static_cast<std::uint8_t>(i * 2654435761U >> 13));
    }
    const mode_t before = umask(0);
    std::ofstream(path) << "mine";
    const CDescriptor theirs(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    {
        COutputFile file(path.c_str());
        ASSERT_TRUE(file.IsOpen());
        constexpr std::size_t kPieces[] = {4000, 40000, 1, 16383, 32720, 4096, 0};
        std::size_t next = 0;
        for (std::span rest(data); !rest.empty(); ++next) {
            const auto piece = rest.first(std::min(kPieces[next % std::size(kPieces)], rest.size()));
            ASSERT_TRUE(file.Write(piece));
            rest = rest.subspan(piece.size());
        }
        ASSERT_TRUE(file.Close());
    }
    umask(before);
    char kept[8] = "";
    EXPECT_EQ(read(theirs.Get(), kept, sizeof kept), 4) << "somebody else's file";
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms{0644});
    CFileSource source(path.c_str());
    std::vector<std::uint8_t> read;
    for (auto piece = source.Take(4096); !piece.empty(); piece = source.Take(4096)) {
        read.insert(read.end(), piece.begin(), piece.end());
        ASSERT_EQ(source.Tell(), static_cast<off_t>(read.size()));
    }
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(read == data);
    ASSERT_TRUE(source.Seek(150000));
    EXPECT_EQ(source.Take(1)[0], data[150000]);
    EXPECT_FALSE(source.Seek(-1));
    EXPECT_TRUE(source.Skip(150000));
    EXPECT_FALSE(source.Skip(1));

    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
    EXPECT_FALSE(CFileSource(path.c_str()).IsOpen());
    std::filesystem::remove(path);
    std::filesystem::create_symlink("/etc/passwd", path);
    EXPECT_TRUE(COutputFile(path.c_str()).IsOpen());
    EXPECT_EQ(std::filesystem::file_size(path), 0U);
    std::filesystem::remove(path);
}

}  // namespace
