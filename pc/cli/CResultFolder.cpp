#include "cli/CResultFolder.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "result/LabResult.h"

namespace ZELPC {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const fs::path& path) {
    throw std::runtime_error(path.string() + ": " + std::strerror(errno));
}

/// Closes what it holds.
struct Descriptor {
    explicit Descriptor(int opened) : number(opened) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (number >= 0) {
            close(number);
        }
    }
    int number;
};

/// A text of an analyzer as a part of a file name.
std::string NamePart(const std::string& text) {
    std::string part;
    for (const char c : text) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
        part += plain ? c : '_';
    }
    return part.empty() ? "unknown" : part.substr(0, 32);
}

/// The same for the same result, however often it comes.
std::string KeyOf(const std::string& serial, const std::string& text) {
    constexpr std::size_t kBytes = 8;
    constexpr char kDigits[] = "0123456789abcdef";
    const std::string whole = serial + '\0' + WithoutBuildTime(text);
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    EVP_Digest(whole.data(), whole.size(), hash.data(), nullptr, EVP_sha256(), nullptr);
    std::string key;
    for (std::size_t i = 0; i < kBytes; ++i) {
        key += kDigits[hash[i] >> 4];
        key += kDigits[hash[i] & 0xF];
    }
    return key;
}

}  // namespace

CResultFolder::CResultFolder(fs::path folder) : folder_(std::move(folder)) {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error || access(folder_.c_str(), W_OK | X_OK) != 0) {
        Fail(folder_);
    }
}

CResultFolder::Saved CResultFolder::Save(const std::string& serial, const std::string& text,
                                         const std::string& measured) const {
    Saved saved;
    saved.path = folder_ / (NamePart(serial) + "-" + NamePart(measured) + "-" + KeyOf(serial, text) + ".hl7");
    if (fs::exists(saved.path)) {
        // Its name came last, but perhaps did not reach the disk before the result was asked for again.
        SyncFolder();
        saved.again = true;
        return saved;
    }
    Write(saved.path, text);
    return saved;
}

void CResultFolder::Write(const fs::path& path, const std::string& text) const {
    const fs::path unfinished = path.string() + ".part";
    try {
        const Descriptor file(open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
        if (file.number < 0) {
            Fail(unfinished);
        }
        for (std::size_t done = 0; done < text.size();) {
            const ssize_t count = write(file.number, text.data() + done, text.size() - done);
            if (count < 0 && errno != EINTR) {
                Fail(unfinished);
            }
            done += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        if (fsync(file.number) != 0 || rename(unfinished.c_str(), path.c_str()) != 0) {
            Fail(unfinished);
        }
    } catch (...) {
        unlink(unfinished.c_str());
        throw;
    }
    SyncFolder();
}

void CResultFolder::SyncFolder() const {
    const Descriptor folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.number < 0 || fsync(folder.number) != 0) {
        Fail(folder_);
    }
}

}  // namespace ZELPC
