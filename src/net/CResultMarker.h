#pragma once

#include <mutex>

namespace RMUP::Net {

/// The file through which the thread that hears the PC's acknowledgement of a result tells the thread that sent it.
/// One for all sessions, which tells whose results wait. Every operation may be called from any thread; that the file
/// cannot be made or removed shows only as an acknowledgement that does not come.
class CResultMarker {
public:
    CResultMarker() = default;
    CResultMarker(const CResultMarker&) = delete;
    CResultMarker& operator=(const CResultMarker&) = delete;

    /// Held from before a result is sent until its acknowledgement has come or is given up.
    class Awaited {
    public:
        /// Removes the marker of an earlier packet. `ofSession` counts the results that wait on their session; it is
        /// the marker's to read and write.
        Awaited(CResultMarker& marker, int& ofSession);
        Awaited(const Awaited&) = delete;
        Awaited& operator=(const Awaited&) = delete;
        ~Awaited();

    private:
        CResultMarker& marker_;
        int& ofSession_;
    };

    /// Makes the marker for an acknowledgement that came over the session of this count. While a result waits, that
    /// has to be the session that it went through.
    void Acknowledge(const int& ofSession);

    /// Removes the marker unless an acknowledgement is awaited. Whoever only asks the device for something could
    /// otherwise keep results from being told as sent, by asking often enough.
    void RemoveStale();

    static void Create();
    static void Remove();
    static bool Exists();

private:
    std::mutex mutex_;
    int awaited_ = 0;  ///< behind mutex_, as the counts of the sessions are
};

}  // namespace RMUP::Net
