// zanthd: the site gateway. Holds the library, journals everything the controllers send, takes
// the door decisions and serves the REST API.
//
//   zanthd --config /etc/zanthd/zanthd.toml     run in the foreground until SIGTERM or SIGINT
//   zanthd --config zanthd.toml --check         check the config and exit
//   zanthd --hash-token [TOKEN]                 a token's line for the config (a new token if none)
//
// Exit codes: 0 stopped cleanly (or a check passed), 1 could not start, 2 bad command line or
// config.

#include <openssl/rand.h>
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include "gateway/Auth.h"
#include "gateway/Config.h"
#include "gateway/Gateway.h"
#include "gateway/Log.h"

namespace {

void Usage(FILE* out) {
    std::fprintf(out,
                 "usage: zanthd --config FILE [--check]\n"
                 "       zanthd --hash-token [TOKEN]\n"
                 "  --config FILE     the gateway's config (TOML); a commented sample ships as zanthd.toml\n"
                 "  --check           check the config and exit 0, or 2 with the line at fault\n"
                 "  --hash-token      print the [[tokens]] entry for TOKEN (read from stdin when not\n"
                 "                    given; a new random token when stdin is empty or a terminal)\n"
                 "exit codes: 0 stopped cleanly, 1 could not start, 2 bad command line or config\n");
}

int HashToken(const char* given) {
    std::string token;
    bool generated = false;
    if (given != nullptr) {
        token = given;
    } else if (!isatty(0)) {
        std::getline(std::cin, token);
    }
    if (token.empty()) {
        unsigned char bytes[24];
        if (RAND_bytes(bytes, sizeof bytes) != 1) {
            std::fprintf(stderr, "zanthd: no random bytes for a token\n");
            return 1;
        }
        static const char kHex[] = "0123456789abcdef";
        for (unsigned char b : bytes) {
            token.push_back(kHex[b >> 4]);
            token.push_back(kHex[b & 15]);
        }
        generated = true;
    }
    if (generated) std::printf("# the token (give it to the client; it is not kept): %s\n", token.c_str());
    std::printf("[[tokens]]\nname = \"NAME\"\nscope = \"read\"   # or \"operator\"\nsha256 = \"%s\"\n",
                zanthd::Sha256Hex(token).c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string configPath;
    bool check = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            Usage(stdout);
            return 0;
        }
        if (arg == "--hash-token") return HashToken(i + 1 < argc ? argv[i + 1] : nullptr);
        if (arg == "--check") {
            check = true;
        } else if (arg == "--config" && i + 1 < argc) {
            configPath = argv[++i];
        } else {
            std::fprintf(stderr, "zanthd: unknown argument %s\n", arg.c_str());
            Usage(stderr);
            return 2;
        }
    }
    if (configPath.empty()) {
        Usage(stderr);
        return 2;
    }
    zanthd::Config config;
    try {
        config = zanthd::LoadConfig(configPath);
    } catch (const zanthd::ConfigError& e) {
        std::fprintf(stderr, "zanthd: %s\n", e.what());
        return 2;
    }
    if (check) {
        std::printf("zanthd: %s is good\n", configPath.c_str());
        return 0;
    }
    zanthd::Level level = zanthd::Level::Info;
    zanthd::ParseLevel(config.logLevel, &level);
    zanthd::SetLogLevel(level);

    // The stop signals are taken by the main thread alone (every thread started later inherits
    // the mask); a peer that goes away never raises SIGPIPE.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);
    signal(SIGPIPE, SIG_IGN);
    try {
        return zanthd::RunGateway(config, stop);
    } catch (const std::exception& e) {
        zanthd::Log(zanthd::Level::Error, "gateway", "stopped by an error: %s", e.what());
        return 1;
    }
}
