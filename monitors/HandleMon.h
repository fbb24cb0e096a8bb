#pragma once
// The register of named library threads ("listener", "reset", the callback threads...) and the
// library-wide terminate byte, which is how every loop learns that the library is ending.

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "monitors/HandleEntry.h"

namespace zanth {

class HandleMon {
  public:
    explicit HandleMon(const char* name);
    ~HandleMon();

    void Add(const char* name, uint32_t threadId);
    void IsRunning(const char* name, uint8_t* found);
    // The entry's index, or -10021 when there is none; later entries move down.
    void Remove(const char* name, int32_t* index);
    void IsTerminating(uint8_t* flag);
    // The same as a truth value: every library loop asks it.
    bool Terminating();
    void SetTerminating(uint8_t flag);
    // 1 when the library terminates or the name is unknown; otherwise the entry's stop byte.
    void ShouldStop(const char* name, uint8_t* stop);
    void SetStop(const char* name, uint8_t stop, int32_t* index);
    // Index or -10021 in *result; posts when the entry has a thread id; -10018 on a failed post.
    void PostMsgByName(const char* name, uint32_t message, int32_t* result);
    // Forced ends; the library keeps these and never calls them.
    void TerminateByName(const char* name);
    void TerminateAll();

    // Removes the name's entry only while it belongs to `threadId`, so that a thread that ends
    // late never removes its successor's registration.
    void RemoveIfThread(const char* name, uint32_t threadId);
    // Unloading: from now on every thread is told to stop, whatever the terminate byte says.
    void SetUnloading(bool unloading);
    // The thread id registered under a name, or 0.
    uint32_t ThreadIdOf(const char* name);

  private:
    int32_t IndexOf(const char* name) const;

    std::mutex lock_;
    std::string name_;
    std::vector<HandleEntry> entries_;
    uint8_t terminate_ = 0;
    bool unloading_ = false;
};

}  // namespace zanth
