#pragma once

/// The file through which the thread that hears the PC's acknowledgement of a result tells the thread that sent it.
class CResultMarker {
public:
    static void Create();
    static void Remove();
    static bool Exists();
};
