#pragma once
// The controllers the host is willing to serve: a sorted array of MAC texts, or ALL.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace zanth {

class ValidMon {
  public:
    explicit ValidMon(const char* name);
    ~ValidMon();

    // Replaces the list: items split at commas, raised to upper case, blanks stripped; ALL makes
    // every MAC valid. Any text is accepted.
    void SetList(const char* text);
    // The list, comma-separated, ALL first. -10006 when the buffer can't hold it: the text then
    // ends after the last whole entry, with a trailing comma.
    void GetList(char* buffer, int32_t size, int32_t* error);
    // Sets *flag when the MAC is valid. The text is raised to upper case in place.
    void Contains(char* mac, uint8_t* flag);

    int32_t Count();

  private:
    std::mutex lock_;
    std::string name_;
    std::vector<std::string> macs_;
    uint8_t all_ = 0;
};

}  // namespace zanth
