#pragma once

#include <sqlite3.h>

#include <stdexcept>
#include <string>

namespace ZELPC {

/// What SQLite could not do, in its own words.
class CDatabaseError : public std::runtime_error {
public:
    explicit CDatabaseError(sqlite3* database)
        : std::runtime_error(sqlite3_errmsg(database)), code_(sqlite3_extended_errcode(database)) {}
    CDatabaseError(int code, const std::string& text) : std::runtime_error(text), code_(code) {}

    /// SQLite's extended result code.
    int Code() const { return code_; }

private:
    int code_;
};

}  // namespace ZELPC
