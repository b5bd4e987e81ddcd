#include <gtest/gtest.h>

#include "web/CAccess.h"

namespace ZELPC {
namespace {

constexpr char kToken[] = "0123456789abcdef";
constexpr char kBearer[] = "Bearer 0123456789abcdef";
constexpr char kBasic[] = "Basic YW55OjAxMjM0NTY3ODlhYmNkZWY=";  // any:0123456789abcdef

struct Case {
    const char* host;
    const char* authorization;
    const char* origin;
    const char* fetchSite;
    std::string token;  ///< field of the form
    std::string guard;
    Need need;
    int status;  ///< 200: allowed
};

int StatusOf(const CAccess& access, const Case& one) {
    WebRequest request;
    request.host = one.host;
    request.authorization = one.authorization;
    request.origin = one.origin;
    request.fetchSite = one.fetchSite;
    if (!one.token.empty()) {
        request.form["token"] = one.token;
    }
    if (!one.guard.empty()) {
        request.form["guard"] = one.guard;
    }
    const auto refusal = access.Check(request, one.need);
    return refusal.has_value() ? refusal->status : 200;
}

TEST(AccessTest, WhoMayDoWhat) {
    const CAccess local(boost::asio::ip::make_address("127.0.0.1"), kToken, {"gateway.lab"});
    const CAccess remote(boost::asio::ip::make_address("0.0.0.0"), kToken, {"gateway.lab"});
    const CAccess tokenless(boost::asio::ip::make_address("::1"), "", {});
    const std::string& guard = local.Guard();
    const Need read = Need::kRead;
    const Need act = Need::kAct;
    const Case atHome[] = {
        {"127.0.0.1:9080", "", "", "", "", "", read, 200},
        {"localhost", "", "", "", "", "", read, 200},
        {"[::1]:9080", "", "", "", "", "", read, 200},
        {"gateway.lab", "", "", "", "", "", read, 200},
        // A name that somebody lets lead to this machine.
        {"evil.example", "", "", "", "", "", read, 421},
        {"evil.example:9080", kBearer, "", "", "", "", act, 421},
        {"", "", "", "", "", "", read, 421},
        {"localhost.evil.example", "", "", "", "", "", Need::kNothing, 421},
        // Acts need the token even here.
        {"localhost", "", "", "", "", "", act, 403},
        {"localhost", kBearer, "", "", "", "", act, 200},
        {"localhost", "Bearer 0123456789abcdeF", "", "", "", "", act, 403},
        {"localhost", "Bearer ", "", "", "", "", act, 403},
        {"localhost", "", "http://localhost", "same-origin", kToken, "", act, 200},
        {"localhost", "", "http://localhost", "", "wrong", guard, act, 403},
        // A browser that knows the password sends it from every page: only a page of the gateway's own holds the guard.
        {"localhost", kBasic, "http://localhost", "same-origin", "", guard, act, 200},
        {"localhost", kBasic, "http://localhost", "same-origin", "", "", act, 403},
        {"localhost", kBasic, "", "", "", "guessed", act, 403},
        {"localhost", kBasic, "http://evil.example", "", "", guard, act, 403},
        {"localhost", kBearer, "http://evil.example", "", "", "", act, 403},
        {"localhost", kBearer, "null", "", "", "", act, 403},
        {"localhost", kBearer, "http://localhost:8000", "", "", "", act, 403},
        {"localhost", "", "http://localhost", "cross-site", kToken, guard, act, 403},
    };
    for (const Case& one : atHome) {
        EXPECT_EQ(StatusOf(local, one), one.status) << one.host << one.authorization << one.origin;
    }
    const Case abroad[] = {
        {"10.0.0.5", "", "", "", "", "", read, 401},
        {"10.0.0.5", "", "", "", "", "", Need::kNothing, 200},
        {"10.0.0.5", kBasic, "", "", "", "", read, 200},
        {"10.0.0.5", kBearer, "", "", "", "", read, 200},
        {"10.0.0.5", "Basic YW55Og==", "", "", "", "", read, 401},
        {"10.0.0.5", "Basic !!!", "", "", "", "", read, 401},
    };
    for (const Case& one : abroad) {
        EXPECT_EQ(StatusOf(remote, one), one.status) << one.authorization;
    }
    // Without a token an empty one does not open anything.
    EXPECT_EQ(StatusOf(tokenless, {"[::1]", "Bearer ", "", "", "", "", act, 0}), 403);
    EXPECT_EQ(StatusOf(tokenless, {"[::1]", "Basic Og==", "", "", "", tokenless.Guard(), act, 0}), 403);
}

TEST(AccessTest, FieldsAreDecodedWhateverTheyAre) {
    const WebFields fields = ParseFields("a=1+2%26%3d&b&=c&a=second&%zz=%4&d=%41%00");
    EXPECT_EQ(fields.at("a"), "1 2&=");
    EXPECT_EQ(fields.at("b"), "");
    EXPECT_EQ(fields.at("%zz"), "%4");
    EXPECT_EQ(fields.at("d"), std::string("A\0", 2));
    EXPECT_LE(ParseFields(std::string(1 << 16, '&')).size(), 64U);
    EXPECT_EQ(ParseFields("x=" + PercentEncode("a b&c=\xC3\xA4%")).at("x"), "a b&c=\xC3\xA4%");
}

}  // namespace
}  // namespace ZELPC
