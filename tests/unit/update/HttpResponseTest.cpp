#include "process/update/HttpResponse.h"

#include <gtest/gtest.h>

#include "UpdateFiles.h"

using namespace RMUP::Process;
using UpdateTest::CTextSource;

namespace {

// Faults: a byte of the body taken with the header, a header without end waited for or stored for ever.
TEST(HttpResponse, HeaderEnds) {
    CTextSource source("HTTP/1.1 200 OK\r\nA: b\r\n\r\n\r\nbody");
    std::string header;
    ASSERT_TRUE(ReadHttpHeader(source, header));
    EXPECT_EQ(header, "HTTP/1.1 200 OK\r\nA: b\r\n\r\n");
    EXPECT_EQ(source.Take(1)[0], '\r');

    CTextSource cut("HTTP/1.1 200 OK\r\nA: b\r\n\r");
    EXPECT_FALSE(ReadHttpHeader(cut, header));
    CTextSource endless(std::string(70000, 'a') + "\r\n\r\n", 4096);
    EXPECT_FALSE(ReadHttpHeader(endless, header));
}

// Faults: a length that is absent, negative, huge or no number taken for one; a read beyond the header.
TEST(HttpResponse, ContentLength) {
    struct Case {
        const char* header;
        HttpLength result;
        std::size_t length;
    };
    const Case cases[] = {
        {"HTTP/1.1 200 OK\r\nContent-Length: 12\r\n\r\n", HttpLength::kGood, 12},
        {"Content-Length: 0 \r\n\r\n", HttpLength::kGood, 0},
        {"Content-Length: 16777216\r\n\r\n", HttpLength::kGood, 16777216},
        {"Content-Length: 16777217\r\n\r\n", HttpLength::kInvalid, 0},
        {"Content-Length: 99999999999999999999999\r\n\r\n", HttpLength::kInvalid, 0},
        {"Content-Length: -1\r\n\r\n", HttpLength::kInvalid, 0},
        {"Content-Length: 1x\r\n\r\n", HttpLength::kInvalid, 0},
        {"Content-Length: \r\n\r\n", HttpLength::kInvalid, 0},
        {"Content-Length\r\n\r\n", HttpLength::kInvalid, 0},
        {"Content-Length", HttpLength::kInvalid, 0},
        {"Transfer-Encoding: chunked\r\n\r\n", HttpLength::kMissing, 0},
    };
    for (const Case& test : cases) {
        std::size_t length = 0;
        ASSERT_EQ(ParseContentLength(test.header, length), test.result) << test.header;
        if (test.result == HttpLength::kGood) {
            EXPECT_EQ(length, test.length);
        }
    }
}

// Faults: an error page or a redirection stored as the document, an answer without status line refused.
TEST(HttpResponse, Refusal) {
    EXPECT_FALSE(IsHttpRefusal("HTTP/1.1 200 OK\r\n\r\n"));
    EXPECT_FALSE(IsHttpRefusal("Content-Length: 3\r\n\r\n"));
    EXPECT_TRUE(IsHttpRefusal("HTTP/1.1 404 Not Found\r\n\r\n"));
    EXPECT_TRUE(IsHttpRefusal("HTTP/1.0 302 Found\r\nLocation: /2\r\n\r\n"));
}

}  // namespace
