#include "cli/Password.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>

namespace ZELPC {

namespace {

constexpr std::size_t kLongest = 8;

/// The terminal shows nothing of what is typed while this lives.
class CSilentTerminal {
public:
    explicit CSilentTerminal(int terminal) : terminal_(terminal) {
        known_ = tcgetattr(terminal_, &before_) == 0;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (known_) {
            tcsetattr(terminal_, TCSAFLUSH, &silent);
        }
    }
    CSilentTerminal(const CSilentTerminal&) = delete;
    CSilentTerminal& operator=(const CSilentTerminal&) = delete;
    ~CSilentTerminal() {
        if (known_) {
            tcsetattr(terminal_, TCSAFLUSH, &before_);
        }
    }

private:
    int terminal_;
    termios before_{};
    bool known_ = false;
};

std::string AskFor(const std::string& host) {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> terminal(std::fopen("/dev/tty", "r+e"), std::fclose);
    if (terminal == nullptr) {
        throw PasswordError("the administrator password is needed: give --password-file or ZELPC_PASSWORD");
    }
    std::string password;
    {
        // First: what is typed as soon as the question stands there would be shown, and lost.
        const CSilentTerminal silent(fileno(terminal.get()));
        std::fprintf(terminal.get(), "Administrator password of %s: ", host.c_str());
        std::fflush(terminal.get());
        for (int c = std::fgetc(terminal.get()); c != EOF && c != '\n'; c = std::fgetc(terminal.get())) {
            password += static_cast<char>(c);
        }
    }
    std::fputc('\n', terminal.get());
    if (std::ferror(terminal.get()) != 0) {
        throw CalledOff();  // a signal was waited for elsewhere, and broke off the reading here
    }
    return password;
}

std::string FromFile(const std::string& path) {
    std::ifstream file(path);
    std::string password;
    if (!std::getline(file, password)) {
        throw PasswordError("no password can be read from " + path);
    }
    return password;
}

}  // namespace

std::string ReadPassword(const PasswordOptions& options, const std::string& host) {
    std::string password;
    if (!options.file.empty()) {
        password = FromFile(options.file);
    } else if (const char* given = std::getenv("ZELPC_PASSWORD")) {
        password = given;
    } else {
        password = AskFor(host);
    }
    if (password.empty() || password.size() > kLongest) {
        throw PasswordError("the administrator password of an analyzer has 1 to 8 characters");
    }
    return password;
}

}  // namespace ZELPC
