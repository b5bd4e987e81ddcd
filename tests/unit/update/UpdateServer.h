#pragma once

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/CDescriptor.h"

namespace UpdateTest {

/// An HTTP server on port 80 whose answers are given to the byte, header included. It closes after each answer.
class CUpdateServer {
public:
    CUpdateServer();
    ~CUpdateServer();

    void Answer(const std::string& path, const std::string& bytes);
    std::vector<std::string> TakeRequests();

    /// A good answer with this body.
    static std::string Good(const std::string& body);

private:
    void Serve();
    void ServeOne(const CDescriptor& client);

    CDescriptor listener_;
    std::mutex mutex_;
    std::map<std::string, std::string> answers_;
    std::vector<std::string> requests_;
    std::thread thread_;
};

}  // namespace UpdateTest
