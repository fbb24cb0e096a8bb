#include "tools/cli/Platform.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

#ifdef _WIN32
#include <winsock2.h>
#include <windows.h>
#include <io.h>
#else
#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace zanth::cli::platform {
namespace fs = std::filesystem;

namespace {

std::atomic<int> interrupts{0};

std::string Env(const char* name) {
    const char* v = std::getenv(name);
    return v ? v : "";
}

fs::path ProgramDir() {
#ifdef _WIN32
    char path[MAX_PATH + 1] = {};
    DWORD n = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
    if (n == 0 || n >= MAX_PATH) return {};
    return fs::path(path).parent_path();
#else
    std::error_code ec;
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return ec ? fs::path() : exe.parent_path();
#endif
}

#ifdef _WIN32
BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT && event != CTRL_CLOSE_EVENT) return FALSE;
    if (interrupts.fetch_add(1) >= 1) ::ExitProcess(130);
    return TRUE;
}
#else
void OnSignal(int) {
    if (interrupts.fetch_add(1) >= 1) ::_exit(130);
}
#endif

}  // namespace

fs::path DefaultDataDir() {
#ifdef _WIN32
    std::string base = Env("LOCALAPPDATA");
    if (base.empty()) base = Env("USERPROFILE") + "\\AppData\\Local";
    return fs::path(base) / "zanth";
#else
    std::string state = Env("XDG_STATE_HOME");
    if (!state.empty()) return fs::path(state) / "zanth";
    std::string home = Env("HOME");
    if (home.empty()) home = ".";
    return fs::path(home) / ".local" / "state" / "zanth";
#endif
}

void EnterDataDir(const fs::path& dir) {
    std::error_code ec;
    bool made = fs::create_directories(dir, ec);
    if (ec) throw std::runtime_error("can't make the data folder " + dir.string() + ": " + ec.message());
    // It holds the site's events and the seed file of encrypted links: the user's alone.
    if (made) fs::permissions(dir, fs::perms::owner_all, fs::perm_options::replace, ec);
    fs::current_path(dir, ec);
    if (ec) throw std::runtime_error("can't enter the data folder " + dir.string() + ": " + ec.message());
#ifdef _WIN32
    // A key of the command line's own stands in for HKEY_CURRENT_USER in this process: the
    // library reads its log folder (Software\Orlan\ZanthDLL\LogFilePath) below it and finds none.
    HKEY own = nullptr;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\zanth\\command-line", 0, nullptr,
                          REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &own, nullptr) != ERROR_SUCCESS ||
        ::RegOverridePredefKey(HKEY_CURRENT_USER, own) != ERROR_SUCCESS) {
        throw std::runtime_error("can't set HKEY_CURRENT_USER aside for the library");
    }
#else
    // The library reads ${XDG_CONFIG_HOME}/Orlan/ZanthDLL/LogFilePath: here it finds nothing.
    std::string config = (fs::current_path() / "config").string();
    if (::setenv("XDG_CONFIG_HOME", config.c_str(), 1) != 0) {
        throw std::runtime_error("can't set XDG_CONFIG_HOME");
    }
#endif
}

std::vector<std::string> LibraryCandidates(const std::string& given) {
    std::vector<std::string> out;
    if (!given.empty()) return {given};
    std::string env = Env("ZANTH_LIBRARY");
    if (!env.empty()) return {env};
    fs::path dir = ProgramDir();
    if (!dir.empty()) {
#ifdef _WIN32
        out.push_back((dir / ZANTH_CLI_LIBRARY_NAME).string());
#else
        out.push_back((dir / ZANTH_CLI_LIBDIR_FROM_BINDIR / ZANTH_CLI_LIBRARY_NAME).lexically_normal().string());
        fs::path build = (dir / ".." / "lib" / ZANTH_CLI_LIBRARY_NAME).lexically_normal();
        if (build.string() != out.back()) out.push_back(build.string());
#endif
    }
    out.emplace_back(ZANTH_CLI_LIBRARY_NAME);
    return out;
}

bool IsBareName(const std::string& candidate) {
    return candidate.find('/') == std::string::npos && candidate.find('\\') == std::string::npos;
}

void CatchInterrupts() {
#ifdef _WIN32
    ::SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
#else
    struct sigaction sa {};
    sa.sa_handler = OnSignal;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, nullptr);
    ::sigaction(SIGTERM, &sa, nullptr);
#endif
}

bool Interrupted() { return interrupts.load() > 0; }

bool IsTerminal(std::FILE* stream) {
#ifdef _WIN32
    return ::_isatty(::_fileno(stream)) != 0;
#else
    return ::isatty(::fileno(stream)) != 0;
#endif
}

int PortTaken(int port) {
#ifdef _WIN32
    WSADATA data;
    if (::WSAStartup(MAKEWORD(2, 2), &data) != 0) return 0;
    SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    int error = 0;
    if (s != INVALID_SOCKET) {
        BOOL exclusive = TRUE;
        ::setsockopt(s, SOL_SOCKET, SO_EXCLUSIVEADDRUSE, reinterpret_cast<const char*>(&exclusive), sizeof exclusive);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<u_short>(port));
        if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) error = ::WSAGetLastError();
        ::closesocket(s);
    }
    ::WSACleanup();
    return error;
#else
    int s = ::socket(AF_INET, SOCK_STREAM, 0);
    if (s < 0) return 0;
    int on = 1;
    ::setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    int error = 0;
    if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(s, 1) != 0) error = errno;
    ::close(s);
    return error;
#endif
}

int FreePort() {
#ifdef _WIN32
    WSADATA data;
    if (::WSAStartup(MAKEWORD(2, 2), &data) != 0) return 0;
    SOCKET s = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    int port = 0;
    if (s != INVALID_SOCKET) {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        int length = sizeof a;
        if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
            ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &length) == 0) {
            port = ntohs(a.sin_port);
        }
        ::closesocket(s);
    }
    ::WSACleanup();
    return port;
#else
    int s = ::socket(AF_INET, SOCK_STREAM, 0);
    if (s < 0) return 0;
    sockaddr_in a{};
    a.sin_family = AF_INET;
    socklen_t length = sizeof a;
    int port = 0;
    if (::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
        ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &length) == 0) {
        port = ntohs(a.sin_port);
    }
    ::close(s);
    return port;
#endif
}

std::tm LocalTime(std::time_t t) {
    std::tm out{};
#ifdef _WIN32
    ::localtime_s(&out, &t);
#else
    ::localtime_r(&t, &out);
#endif
    return out;
}

}  // namespace zanth::cli::platform
