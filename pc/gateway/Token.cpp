#include "gateway/Token.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <random>

namespace ZELPC {

namespace {

std::string Random() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}{:08x}{:08x}", random(), random(), random(), random());
}

}  // namespace

std::string OwnTokenFile(const GatewayConfig& config) {
    return (std::filesystem::path(config.store.path).parent_path() / "token").string();
}

std::string TokenOf(const GatewayConfig& config) {
    if (!config.web.token.empty()) {
        return config.web.token;
    }
    const std::string path = OwnTokenFile(config);
    std::string token;
    if (std::ifstream(path) >> token && token.size() >= 16) {
        return token;
    }
    token = Random() + "\n";
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (file < 0 || ::write(file, token.data(), token.size()) != static_cast<ssize_t>(token.size())) {
        spdlog::warn("{} cannot be written: nothing can be changed through the page", path);
        token.clear();
    }
    if (file >= 0) {
        ::close(file);
    }
    return token.substr(0, token.find('\n'));
}

}  // namespace ZELPC
