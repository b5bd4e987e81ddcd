/// Writes so many lines to the log, as the service does while it receives from the update server: `zelrm_log_lines
/// COUNT`. Prints the seconds.

#include <chrono>
#include <cstdlib>
#include <iostream>

#include "common/Constants.h"
#include "platform/Log.h"

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: zelrm_log_lines COUNT\n";
        return 1;
    }
    const int lines = std::atoi(arguments[1]);
    QENFx::Log::FileLog* log = QENFx::Log::Logger::getLogger()->getLog(kLogName);
    const auto start = std::chrono::steady_clock::now();
    for (int line = 1; line <= lines; ++line) {
        log->WriteInfo("%s Type(%d) Downloaded size: %d", "[CUpdate::DownloadFile]", 3, line * 4096);
    }
    std::cout << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() << "\n";
    return 0;
}
