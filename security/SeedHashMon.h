#pragma once
// The per-controller seeds of link keys, read from the site's zanth.txt: lines of
// "02:5A:37:XX:XX:XX seed" or "default seed". The first line for a MAC wins, and so does the
// first default line. With no file and no default line, the seed is empty.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "monitors/HashTable.h"

namespace zanth {

class SeedHashMon : private HashTable<std::string> {
  public:
    static constexpr int32_t kBuckets = 127;
    static constexpr const char* kFileName = "zanth.txt";

    // The file's path is fixed here, against the current directory at load.
    explicit SeedHashMon(const char* name);
    ~SeedHashMon();

    // Replaces the table with the file's contents; a missing file leaves it empty.
    void Load();
    // The seed for a MAC (XX:XX:XX), or the default, or the empty text. At most `size`
    // characters with a terminator at index `size`: `dest` holds size + 1 bytes.
    void Get(const char* mac, char* dest, int32_t size);

    const std::string& Path() const { return path_; }

  private:
    void Add(const char* key, const char* seed);
    void Clear();

    // Re-entrant: Load holds it over the whole read and Add takes it again.
    std::recursive_mutex lock_;
    std::string name_;
    std::string path_;
    bool defaultSet_ = false;
    std::optional<std::string> defaultSeed_;
};

}  // namespace zanth
