#include "device/downloads/response.h"

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

namespace {

using downloads::Response;

Response responseOf(std::initializer_list<const char*> lines) {
    Response response;
    for (const char* line : lines)
        EXPECT_TRUE(response.takeLine(std::string(line) + "\r\n"));
    return response;
}

TEST(Response, TellsItsStatusAndFields) {
    const Response response =
        responseOf({"HTTP/1.1 206 Partial Content", "CONTENT-LENGTH: 100",
                    "Content-Range: bytes 100-199/200", "Retry-After: 5", "Content-Type: audio/mp4",
                    "Content-Disposition: attachment; filename=a.m4a", ""});
    EXPECT_EQ(response.status(), 206);
    EXPECT_EQ(response.contentLength(), 100u);
    EXPECT_EQ(response.contentRange()->first, 100u);
    EXPECT_EQ(response.contentRange()->last, 199u);
    EXPECT_EQ(response.contentRange()->total, 200u);
    EXPECT_EQ(response.retryAfter(), 5u);
    EXPECT_EQ(response.contentType(), "audio/mp4");
    EXPECT_EQ(response.contentDisposition(), "attachment; filename=a.m4a");
    EXPECT_FALSE(response.isEncoded());
}

TEST(Response, KeepsNothingOfTheResponseBefore) {
    const Response response = responseOf(
        {"HTTP/1.1 302 Found", "ETag: \"a\"", "Content-Length: 3", "", "HTTP/1.1 200 OK", ""});
    EXPECT_EQ(response.status(), 200);
    EXPECT_EQ(response.validator(), "");
    EXPECT_FALSE(response.contentLength());
}

TEST(Response, IsOfAVersionOnlyWhenThatIsSure) {
    EXPECT_EQ(responseOf({"HTTP/1.1 200 OK", "ETag: \"a\""}).validator(), "etag:\"a\"");
    EXPECT_EQ(responseOf({"HTTP/1.1 200 OK", "ETag: W/\"a\""}).validator(), "");
    EXPECT_EQ(responseOf({"HTTP/1.1 200 OK", "Last-Modified: Sat, 01 Aug 2026 10:00:00 GMT",
                          "Date: Sat, 01 Aug 2026 10:00:01 GMT"})
                  .validator(),
              "date:Sat, 01 Aug 2026 10:00:00 GMT");
    // It could change again within the second.
    EXPECT_EQ(responseOf({"HTTP/1.1 200 OK", "Last-Modified: Sat, 01 Aug 2026 10:00:00 GMT",
                          "Date: Sat, 01 Aug 2026 10:00:00 GMT"})
                  .validator(),
              "");
    EXPECT_EQ(
        responseOf({"HTTP/1.1 200 OK", "Last-Modified: Sat, 01 Aug 2026 10:00:00 GMT"}).validator(),
        "");
    EXPECT_EQ(downloads::ifRangeOf("etag:\"a\""), "\"a\"");
    EXPECT_EQ(downloads::ifRangeOf("file:1"), "");
}

TEST(Response, TellsItsEndByLengthChunksOrFrames) {
    EXPECT_TRUE(responseOf({"HTTP/1.1 200 OK", "Content-Length: 3"}).tellsItsEnd());
    EXPECT_TRUE(responseOf({"HTTP/1.1 200 OK", "Transfer-Encoding: Chunked"}).tellsItsEnd());
    EXPECT_TRUE(responseOf({"HTTP/2 200"}).tellsItsEnd());
    EXPECT_FALSE(responseOf({"HTTP/1.1 200 OK"}).tellsItsEnd());
    EXPECT_FALSE(responseOf({"HTTP/1.0 200 OK", "Content-Length: many"}).tellsItsEnd());
}

TEST(Response, MalformedRangesAreNone) {
    for (const char* range :
         {"bytes 5-4/10", "bytes 0-10/10", "bytes -5/10", "bytes */10", "lines 0-1/2", "bytes 0-1",
          "bytes 0-1/x", "", "bytes 1/2-3", "bytes 0-99999999999999999999/*"})
        EXPECT_FALSE(
            responseOf({"HTTP/1.1 206 X", ("Content-Range: " + std::string(range)).c_str()})
                .contentRange())
            << range;
    EXPECT_FALSE(
        responseOf({"HTTP/1.1 206 X", "Content-Range: bytes 0-1/*"}).contentRange()->total);
}

TEST(Response, EndsWhenItsFieldsAreTooLarge) {
    Response response;
    const std::string line = "X: " + std::string(10'000, 'x') + "\r\n";
    EXPECT_TRUE(response.takeLine("HTTP/1.1 200 OK\r\n"));
    int lines = 0;
    while (lines < 100 && response.takeLine(line))
        ++lines;
    EXPECT_EQ(lines, 13);
}

}  // namespace
