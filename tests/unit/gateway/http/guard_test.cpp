// Pages from elsewhere can neither read nor act.
#include "http/guard.h"

#include <gtest/gtest.h>

using namespace ominspect::gateway;

namespace {

int StatusOf(Request request) {
    const auto refusal = Refusal(request, {"localhost", "127.0.0.1", "::1", "room.example"});
    return refusal ? refusal->status : 200;
}

Request Get(const std::string& host) {
    Request request;
    request.method = "GET";
    request.source = "1.2.3.4";
    request.headers["host"] = host;
    return request;
}

TEST(Guard, OnlyOurOwnNamesAreAnswered) {
    for (const char* host : {"localhost:8642", "127.0.0.1:8642", "[::1]:8642", "room.example", "ROOM.example:1"}) {
        EXPECT_EQ(StatusOf(Get(host)), 200) << host;
    }
    for (const char* host :
         {"", "evil.example", "localhost.evil.example", "room.example.evil", "127.0.0.1.evil", "["}) {
        EXPECT_EQ(StatusOf(Get(host)), 421) << host;
    }
    Request local = Get("whatever");
    local.source = "unix";
    EXPECT_EQ(StatusOf(local), 200);
}

TEST(Guard, AnOriginMustBeThePagesOwn) {
    Request request = Get("localhost:8642");
    for (const auto& [origin, status] : {std::pair("http://localhost:8642", 200),
                                         {"https://localhost:8642", 403},
                                         {"http://localhost:8643", 403},
                                         {"http://evil.example", 403},
                                         {"null", 403}}) {
        request.headers["origin"] = origin;
        EXPECT_EQ(StatusOf(request), status) << origin;
    }
    request.headers["origin"] = "https://localhost:8642";
    request.isTls = true;
    EXPECT_EQ(StatusOf(request), 200);
    request.source = "unix";
    request.isTls = false;
    EXPECT_EQ(StatusOf(request), 403) << "a browser behind a proxy, perhaps";
}

TEST(Guard, WhatABrowserSaysOfOtherSitesCounts) {
    Request request = Get("localhost");
    for (const auto& [site, status] :
         {std::pair("same-origin", 200), {"none", 200}, {"cross-site", 403}, {"same-site", 403}}) {
        request.headers["sec-fetch-site"] = site;
        EXPECT_EQ(StatusOf(request), status) << site;
    }
    request.headers["sec-fetch-site"] = "cross-site";
    request.headers["sec-fetch-mode"] = "navigate";
    EXPECT_EQ(StatusOf(request), 200) << "a link leads here";
    request.method = "POST";
    EXPECT_EQ(StatusOf(request), 403) << "a form does not";
}

TEST(Guard, AChangeByACookieNeedsThePagesOrigin) {
    Request request = Get("localhost");
    request.method = "POST";
    EXPECT_EQ(StatusOf(request), 200) << "a program with a token";
    request.session = "abc";
    EXPECT_EQ(StatusOf(request), 403);
    request.headers["origin"] = "http://localhost";
    EXPECT_EQ(StatusOf(request), 200);
    request.headers.erase("origin");
    request.headers["sec-fetch-site"] = "same-origin";
    EXPECT_EQ(StatusOf(request), 200);
}

TEST(Guard, ContentIsBoundedAndJson) {
    Request request = Get("localhost");
    request.method = "POST";
    request.body = std::string(64 * 1024, ' ');
    EXPECT_EQ(StatusOf(request), 415);
    request.headers["content-type"] = "text/plain";
    EXPECT_EQ(StatusOf(request), 415) << "what a form can send";
    request.headers["content-type"] = "application/json; charset=utf-8";
    EXPECT_EQ(StatusOf(request), 200);
    request.body += ' ';
    EXPECT_EQ(StatusOf(request), 413);
}

}  // namespace
