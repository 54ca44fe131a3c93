// Downloads against a server of the test's own on loopback.
#include "zeb_download.h"

#include "loopback_http_server.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>

namespace {

std::vector<HttpPiece> answers(const HttpRequest& request) {
    const std::string& path = request.path;
    if (path == "/missing")
        return {{"HTTP/1.1 404 Not Found\r\nContent-Length: 1234\r\nConnection: close\r\n\r\n" +
                 std::string(request.method == "HEAD" ? 0 : 1234, 'e')}};
    if (path.rfind("/r/", 0) == 0) {
        int left = std::stoi(path.substr(3));
        if (left == 0) return {{LoopbackHttpServer::answer(200, "OK", "arrived")}};
        return {{LoopbackHttpServer::answer(302, "Found", "", "Location: /r/" + std::to_string(left - 1) + "\r\n")}};
    }
    if (path == "/slow") {
        // Two halves with a pause, so that they reach the writer separately.
        std::string half(4000, 's');
        return {{"HTTP/1.1 200 OK\r\nContent-Length: 8000\r\nConnection: close\r\n\r\n" + half},
                {half, 300}};
    }
    return {{LoopbackHttpServer::answer(404, "Not Found", "nothing here")}};
}

TEST(Download, SizeQueryTrustsOnlyRealAnswers) {
    LoopbackHttpServer server([](const HttpRequest& request) -> std::vector<HttpPiece> {
        if (request.path == "/sized")
            return {{"HTTP/1.1 200 OK\r\nContent-Length: 987654\r\nConnection: close\r\n\r\n"}};
        return answers(request);
    });
    EXPECT_EQ(zeb::remoteFileSize(server.url("/sized")), 987654u);
    // The error page states a length; it is not the file's size.
    EXPECT_EQ(zeb::remoteFileSize(server.url("/missing")), 0u);
    EXPECT_EQ(zeb::remoteFileSize("http://127.0.0.1:1/refused"), 0u);
}

TEST(Download, FollowsFiveRedirectsAndRefusesTheSixth) {
    LoopbackHttpServer server(answers);
    std::string body;
    EXPECT_EQ(zeb::fetchToString(server.url("/r/5"), body), 0);
    EXPECT_EQ(body, "arrived");
    EXPECT_EQ(zeb::fetchToString(server.url("/r/6"), body), 47);  // too many redirects
    EXPECT_EQ(body, "");
    // An error page is a failure, not content.
    EXPECT_EQ(zeb::fetchToString(server.url("/missing"), body), 22);
    EXPECT_EQ(body, "");
    // Only web addresses: a package's metadata must not read local files.
    EXPECT_NE(zeb::fetchToString("file:///etc/hostname", body), 0);
}

TEST(Download, CancelBetweenTwoWritesStopsAtTheSecond) {
    LoopbackHttpServer server(answers);
    FILE* file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    zeb::DownloadData download;
    download.file = file;
    download.total = 8000;
    download.cancelled = [&] { return download.received > 0; };
    EXPECT_EQ(zeb::fetchUrl(server.url("/slow"), &zeb::writeToFile, &download), 23);  // write error
    EXPECT_EQ(download.received, 4000);
    EXPECT_EQ(std::ftell(file), 4000);

    std::rewind(file);
    zeb::DownloadData whole;
    whole.file = file;
    int reports = 0;
    whole.progress = [&](zeb::DownloadData*, int64_t, int64_t) { ++reports; };
    EXPECT_EQ(zeb::fetchUrl(server.url("/slow"), &zeb::writeToFile, &whole), 0);
    EXPECT_EQ(whole.received, 8000);
    EXPECT_EQ(reports, 1);  // the first write; the pause is shorter than three seconds
    std::fclose(file);
}

TEST(Download, ProgressAtMostOnceInThreeSecondsAndNeverAfterACancel) {
    int64_t now = 100;
    std::vector<std::pair<int64_t, int64_t>> reports;  // (time, received)
    bool cancel = false;
    zeb::DownloadData download;
    download.total = 70;
    download.clock = [&] { return now; };
    download.progress = [&](zeb::DownloadData* data, int64_t total, int64_t received) {
        EXPECT_EQ(data, &download);
        EXPECT_EQ(total, 70);
        reports.emplace_back(now, received);
    };
    download.cancelled = [&] { return cancel; };
    char data[10] = {};
    for (int64_t at : {100, 101, 102, 103, 105, 106, 109}) {
        now = at;
        EXPECT_EQ(zeb::writeToFile(data, 1, 10, &download), 10u);
    }
    EXPECT_EQ(reports, (std::vector<std::pair<int64_t, int64_t>>{{100, 10}, {103, 40}, {106, 60}, {109, 70}}));
    cancel = true;
    now = 200;
    EXPECT_NE(zeb::writeToFile(data, 1, 10, &download), 10u);
    EXPECT_EQ(download.received, 70);
    EXPECT_EQ(reports.size(), 4u);
}

}  // namespace
