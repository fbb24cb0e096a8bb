#include "gateway/ConsoleAssets.h"

#include <fstream>
#include <sstream>

#include "gateway/Auth.h"

namespace zanthd {

extern const ConsoleAsset kConsoleAssets[];
extern const size_t kConsoleAssetCount;

bool ConsoleFileName(std::string_view name) {
    if (name.empty() || name.size() > 100 || name[0] == '.') return false;
    for (char c : name) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                  c == '_' || c == '-';
        if (!ok) return false;
    }
    return true;
}

std::string ConsoleFileType(std::string_view name) {
    auto ends = [name](std::string_view suffix) {
        return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
    };
    if (ends(".html")) return "text/html; charset=utf-8";
    if (ends(".js")) return "text/javascript; charset=utf-8";
    if (ends(".css")) return "text/css; charset=utf-8";
    if (ends(".svg")) return "image/svg+xml";
    if (ends(".png")) return "image/png";
    if (ends(".json")) return "application/json";
    if (ends(".csv")) return "text/csv; charset=utf-8";
    return "application/octet-stream";
}

std::optional<ConsoleFile> FindConsoleFile(std::string_view name, const std::filesystem::path& dir) {
    if (!ConsoleFileName(name)) return std::nullopt;
    ConsoleFile f;
    if (!dir.empty()) {
        std::ifstream in(dir / std::string(name), std::ios::binary);
        if (!in) return std::nullopt;
        std::ostringstream bytes;
        bytes << in.rdbuf();
        f.body = bytes.str();
    } else {
        const ConsoleAsset* found = nullptr;
        for (size_t i = 0; i < kConsoleAssetCount; ++i) {
            if (name == kConsoleAssets[i].name) found = &kConsoleAssets[i];
        }
        if (found == nullptr) return std::nullopt;
        f.body.assign(reinterpret_cast<const char*>(found->data), found->size);
    }
    f.type = ConsoleFileType(name);
    f.etag = "\"" + Sha256Hex(f.body).substr(0, 32) + "\"";
    return f;
}

}  // namespace zanthd
