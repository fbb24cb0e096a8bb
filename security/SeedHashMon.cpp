#include "security/SeedHashMon.h"

#include <strings.h>

#include <cstdio>
#include <cstring>

#include "platform/File.h"
#include "protocol/CommandRecord.h"
#include "protocol/MessageUtil.h"
#include "protocol/Text.h"
#include "stores/LogMon.h"

namespace zanth {

SeedHashMon::SeedHashMon(const char* name)
    : HashTable<std::string>(kBuckets), name_(name ? name : "") {
    path_ = platform::FullPath(kFileName);
    if (path_.size() > 255) path_.resize(255);
}

SeedHashMon::~SeedHashMon() {
    {
        std::lock_guard<std::recursive_mutex> g(lock_);
        Clear();
    }
    Log(name_.c_str(), kLogTrace, "[SeedHashMon::~SeedHashMon] SeedHashMon terminated");
}

void SeedHashMon::Clear() {
    for (int32_t b = 0; b < BucketCount(); ++b) {
        while (Pop(b, nullptr)) {
        }
    }
    defaultSet_ = false;
    defaultSeed_.reset();
}

void SeedHashMon::Load() {
    std::lock_guard<std::recursive_mutex> g(lock_);
    Clear();
    FILE* file = std::fopen(path_.c_str(), "re");
    char text[kLogTextSize + 300];
    if (file == nullptr) {
        FormatText(text, sizeof text, "[SeedHashMon::Load] Error opening %s", path_.c_str());
        Log(name_.c_str(), kLogError, text);
        return;
    }
    // Lines are read 250 characters at a time: a longer one comes in parts, each taken as a line.
    char line[251];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        char key[251] = {};
        char seed[251] = {};
        std::sscanf(line, "%250s%250s", key, seed);
        if (::strcasecmp(key, "default") == 0) {
            Add(key, seed);
        } else if (std::strlen(key) <= 9) {
            FormatText(text, sizeof text, "[SeedHashMon::Load] Invalid line in %s", kFileName);
            char second[kLogTextSize + 300];
            FormatText(second, sizeof second, "line = %s", line);
            Log(name_.c_str(), kLogError, text, second);
        } else {
            Add(key + 9, seed);
        }
    }
    std::fclose(file);
}

void SeedHashMon::Add(const char* key, const char* seed) {
    std::lock_guard<std::recursive_mutex> g(lock_);
    if (::strcasecmp(key, "default") == 0) {
        if (!defaultSeed_) {
            defaultSet_ = true;
            defaultSeed_ = seed;
        }
        return;
    }
    // No duplicate test: a second line for a MAC stands behind the first, which wins.
    Insert(std::string(seed), MessageUtil::MacHash(key));
}

void SeedHashMon::Get(const char* mac, char* dest, int32_t size) {
    std::lock_guard<std::recursive_mutex> g(lock_);
    if (dest == nullptr || size < 0) return;
    std::memset(dest, 0, static_cast<size_t>(size));
    const std::string* seed = Find(MessageUtil::MacHash(mac));
    bool found = seed != nullptr;
    if (!found) seed = defaultSeed_ ? &*defaultSeed_ : nullptr;
    size_t n = seed ? std::min(seed->size(), static_cast<size_t>(size)) : 0;
    if (n > 0) std::memcpy(dest, seed->data(), n);
    dest[size] = '\0';
    if (!found && !defaultSet_) {
        char text[kLogTextSize];
        FormatText(text, sizeof text, "[SeedHashMon::Get] MAC Address 02:5A:37:%s not found in %s",
                   mac, kFileName);
        Log(name_.c_str(), kLogError, text);
    }
}

}  // namespace zanth
