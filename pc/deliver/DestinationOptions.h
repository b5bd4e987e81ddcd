#pragma once

#include <chrono>
#include <map>
#include <string>

namespace ZELPC {

enum class DestinationType { kMllp, kRabbitMq, kDirectory };

/// The header fields that say who sends to whom; what is empty stays as the analyzer wrote it.
struct HeaderNames {
    std::string sendingApplication;
    std::string sendingFacility;
    std::string receivingApplication;
    std::string receivingFacility;
};

/// One destination as the configuration describes it.
struct DestinationOptions {
    std::string name;
    DestinationType type = DestinationType::kDirectory;
    std::string kind;  ///< "P" patient results only, "Q" control results only, empty: all

    // What is sent
    bool standard = false;  ///< false: the analyzer's text as it is
    HeaderNames names;
    std::map<std::string, std::string> loinc;  ///< LOINC code by analyte

    // MLLP
    std::string host;
    std::string port;
    bool tls = false;
    std::string caFile;           ///< empty: the system's authorities
    std::string certificateFile;  ///< with keyFile: this gateway's own
    std::string keyFile;
    std::chrono::milliseconds connectTimeout{10'000};
    std::chrono::milliseconds answerTimeout{30'000};
    int connections = 1;

    // RabbitMQ; host, port, tls, caFile and the timeouts as above
    std::string user;
    std::string password;
    std::string virtualHost = "/";
    std::string queue;

    // Directory
    std::string directory;

    // The queue
    std::chrono::milliseconds firstPause{1'000};
    std::chrono::milliseconds longestPause{60'000};
    int maxAttempts = 0;                   ///< answers without acceptance after which a message is held; 0: never
    bool stopOnReject = false;             ///< a held message stops its analyzer's queue; false: the next one goes on
    std::chrono::seconds alarmAfter{300};  ///< alarm when the oldest message waits longer
    int alarmBacklog = 1000;               ///< alarm when more messages wait
};

}  // namespace ZELPC
