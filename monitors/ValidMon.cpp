#include "monitors/ValidMon.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>

#include "protocol/MessageUtil.h"
#include "protocol/Result.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

ValidMon::ValidMon(const char* name) : name_(name ? name : "") {}

ValidMon::~ValidMon() {
    Log(name_.c_str(), kLogTrace, "[ValidMon::~ValidMon] ValidMon terminated");
}

void ValidMon::SetList(const char* text) {
    std::lock_guard<std::mutex> g(lock_);
    macs_.clear();
    all_ = 0;
    std::string copy = text ? text : "";
    char* state = nullptr;
    for (char* item = Tokenize(copy.data(), ",", &state); item != nullptr;
         item = Tokenize(nullptr, ",", &state)) {
        for (char* p = item; *p; ++p)
            *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
        MessageUtil::TrimSpaces(item);
        if (std::strcmp(item, "ALL") == 0) {
            all_ = 1;
        } else {
            macs_.emplace_back(item);
        }
    }
    // Byte order, the same for the sort and the search.
    std::sort(macs_.begin(), macs_.end());
}

void ValidMon::GetList(char* buffer, int32_t size, int32_t* error) {
    std::lock_guard<std::mutex> g(lock_);
    *error = 0;
    if (buffer == nullptr || size <= 0) {
        *error = kTooLarge;
        return;
    }
    std::memset(buffer, 0, static_cast<size_t>(size));
    if (all_) {
        if (size > 4) {
            std::strcpy(buffer, "ALL");
        } else {
            *error = kTooLarge;
        }
    }
    if (*error != 0) return;
    size_t used = std::strlen(buffer);
    for (const std::string& mac : macs_) {
        if (used > 0) buffer[used++] = ',';
        if (static_cast<size_t>(size) <= used + mac.size() + 2) {
            *error = kTooLarge;
            return;
        }
        std::memcpy(buffer + used, mac.c_str(), mac.size() + 1);
        used += mac.size();
    }
}

void ValidMon::Contains(char* mac, uint8_t* flag) {
    std::lock_guard<std::mutex> g(lock_);
    *flag = 0;
    if (all_) {
        *flag = 1;
        return;
    }
    if (mac == nullptr) return;
    for (char* p = mac; *p; ++p)
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    // Compared as views: the test runs on every command and allocates nothing.
    *flag = std::binary_search(macs_.begin(), macs_.end(), std::string_view(mac),
                               [](std::string_view a, std::string_view b) { return a < b; })
                ? 1
                : 0;
}

int32_t ValidMon::Count() {
    std::lock_guard<std::mutex> g(lock_);
    return static_cast<int32_t>(macs_.size());
}

}  // namespace zanth
