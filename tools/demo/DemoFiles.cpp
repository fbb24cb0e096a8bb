// The file transfer part of zanth-demo: a small file goes to one controller chunk by chunk in
// the non-blocking form, each chunk's acknowledgement read back from the response queue, and
// comes back whole with GetFile; its permission is read on the way.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "zanth.h"

namespace {

// The next Rsp reply, waiting up to ten seconds.
bool NextReply(int32_t* rspid, char* text, int32_t size) {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (GetNextResponse(rspid, text, size) != 0) {
        if (std::chrono::steady_clock::now() >= until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

}  // namespace

bool DemoFiles(const char* mac) {
    constexpr int32_t kChunk = 4086;
    std::string content;
    for (int line = 1; content.size() < 10000; ++line)
        content +=
            "door " + std::to_string(line % 8) + " schedule line " + std::to_string(line) + "\n";
    const char* path = "/cfg/demo.txt";
    std::printf("\nfile transfer: %zu bytes to %s as %s, in chunks of at most %d\n", content.size(),
                mac, path, kChunk);

    char reply[4117];
    int32_t rspid = 0;
    int32_t tag = 700;
    bool ok = RspSendDataFilename(++tag, mac, path) == 0 && NextReply(&rspid, reply, sizeof reply);
    if (ok) std::printf("  opened:   rspid %d  reply \"%.12s\"\n", rspid, reply);
    for (size_t at = 0, chunk = 1; ok && at < content.size(); ++chunk) {
        const int32_t n = static_cast<int32_t>(std::min<size_t>(kChunk, content.size() - at));
        const int32_t last = at + static_cast<size_t>(n) == content.size() ? 1 : 0;
        ok = RspSendData(++tag, mac, path, content.data() + at, n, last) == 0 &&
             NextReply(&rspid, reply, sizeof reply) && std::strncmp(reply, "1030;", 5) == 0;
        at += static_cast<size_t>(n);
        std::printf("  chunk %zu:  %4d bytes%s  rspid %d  reply \"%.12s\"  (%zu/%zu)\n", chunk, n,
                    last ? " (last)" : "       ", rspid, reply, at, content.size());
    }

    char permission[4] = {};
    int32_t rc = GetFileStatus(mac, path, permission, sizeof permission);
    std::printf("  GetFileStatus = %d  permission %s\n", rc, permission);

    { std::ofstream("demo-back.txt", std::ios::binary | std::ios::trunc); }
    rc = GetFile(mac, path, "demo-back.txt");
    std::ifstream in("demo-back.txt", std::ios::binary);
    const std::string back{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const bool same = back == content;
    std::printf("  GetFile = %d  %zu bytes back, %s\n", rc, back.size(),
                same ? "identical" : "DIFFERENT");
    return ok && rc == 0 && same;
}
