#pragma once

/// Ends the process with exit(1). Safe from any thread and from a signal handler, also when two threads come here at
/// once: the first one exits, the others wait for it.
[[noreturn]] void EndProcess();

/// Blocks SIGHUP, SIGQUIT and SIGTERM in the calling thread, and in those that it starts from now on.
void BlockEndingSignals();

/// While it lives, the main thread takes SIGHUP, SIGQUIT and SIGTERM; on other threads it does nothing. The main thread
/// opens the window only around calls that wait, so that a handler that exits never interrupts code that holds a lock
/// of the C library or the log.
class CEndingSignalsWindow {
public:
    CEndingSignalsWindow();
    CEndingSignalsWindow(const CEndingSignalsWindow&) = delete;
    CEndingSignalsWindow& operator=(const CEndingSignalsWindow&) = delete;
    ~CEndingSignalsWindow();

private:
    const bool mainThread_;
};
