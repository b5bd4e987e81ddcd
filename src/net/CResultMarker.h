#pragma once

/// The file through which the thread that hears the PC's acknowledgement of a result tells the thread that sent it.
class CResultMarker {
public:
    /// Held from before a result is sent until its acknowledgement has come or is given up.
    class Awaited {
    public:
        /// Removes the marker of an earlier packet.
        Awaited();
        Awaited(const Awaited&) = delete;
        Awaited& operator=(const Awaited&) = delete;
        ~Awaited();
    };

    static void Create();
    static void Remove();
    static bool Exists();

    /// Removes the marker unless an acknowledgement is awaited. Whoever only asks the device for something could
    /// otherwise keep results from being told as sent, by asking often enough.
    static void RemoveStale();
};
