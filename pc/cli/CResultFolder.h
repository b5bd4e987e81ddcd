#pragma once

#include <filesystem>
#include <string>

namespace ZELPC {

/// A folder in which each result becomes one file. Any thread may use it, one at a time.
class CResultFolder {
public:
    struct Saved {
        std::filesystem::path path;
        bool again = false;  ///< the same result was there already; nothing was written
    };

    /// Makes the folder when it is not there. Throws std::runtime_error when nothing can be written there.
    explicit CResultFolder(std::filesystem::path folder);

    /// The result is on disk when this returns: written under another name, synchronised, renamed, and the folder
    /// synchronised. The same result sent again finds its file. Throws std::runtime_error, leaving no piece behind.
    [[nodiscard]] Saved Save(const std::string& serial, const std::string& text, const std::string& measured) const;

private:
    void Write(const std::filesystem::path& path, const std::string& text) const;
    void SyncFolder() const;

    std::filesystem::path folder_;
};

}  // namespace ZELPC
