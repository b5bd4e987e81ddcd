#pragma once

/// The file through which the thread that hears the PC's acknowledgement of a result tells the thread that sent it.
class CResultMarker {
public:
    /// Held from before a result is sent until its acknowledgement has come or is given up.
    class Awaited {
    public:
        /// Removes the marker of an earlier packet. `ofSession` counts the results that wait on their session; it is
        /// this class's to read and write.
        explicit Awaited(int& ofSession);
        Awaited(const Awaited&) = delete;
        Awaited& operator=(const Awaited&) = delete;
        ~Awaited();

    private:
        int& ofSession_;
    };

    /// Makes the marker for an acknowledgement that came over the session of this count. While a result waits, that
    /// has to be the session that it went through.
    static void Acknowledge(const int& ofSession);

    static void Create();
    static void Remove();
    static bool Exists();

    /// Removes the marker unless an acknowledgement is awaited. Whoever only asks the device for something could
    /// otherwise keep results from being told as sent, by asking often enough.
    static void RemoveStale();
};
